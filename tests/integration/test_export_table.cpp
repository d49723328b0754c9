// Reads the export table of the built library file itself (ELF dynamic symbols or PE exports).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "support.h"

namespace {

const char* const kExpected[] = {
    "SKF_WaitForDevEvent", "SKF_CancelWaitForDevEvent", "SKF_EnumDev", "SKF_ConnectDev", "SKF_DisConnectDev",
    "SKF_GetDevState", "SKF_SetLabel", "SKF_GetDevInfo", "SKF_LockDev", "SKF_UnlockDev", "SKF_Transmit",
    "SKF_ChangeDevAuthKey", "SKF_DevAuth", "SKF_ChangePIN", "SKF_GetPINInfo", "SKF_VerifyPIN", "SKF_UnblockPIN",
    "SKF_ClearSecureState", "SKF_GetSecureState", "SKF_CreateApplication", "SKF_EnumApplication",
    "SKF_DeleteApplication", "SKF_OpenApplication", "SKF_CloseApplication", "SKF_CreateFile", "SKF_DeleteFile",
    "SKF_EnumFiles", "SKF_GetFileInfo", "SKF_ReadFile", "SKF_WriteFile", "SKF_CreateContainer",
    "SKF_DeleteContainer", "SKF_OpenContainer", "SKF_CloseContainer", "SKF_EnumContainer", "SKF_GetContainerType",
    "SKF_ImportCertificate", "SKF_ExportCertificate", "SKF_GenRandom", "SKF_GenExtRSAKey", "SKF_GenRSAKeyPair",
    "SKF_ImportRSAKeyPair", "SKF_RSASignData", "SKF_RSAVerify", "SKF_RSAExportSessionKey",
    "SKF_ExtRSAPubKeyOperation", "SKF_ExtRSAPriKeyOperation", "SKF_GenECCKeyPair", "SKF_ImportECCKeyPair",
    "SKF_ECCSignData", "SKF_ECCVerify", "SKF_ECCExportSessionKey", "SKF_ExtECCEncrypt", "SKF_ExtECCDecrypt",
    "SKF_ExtECCSign", "SKF_ExtECCVerify", "SKF_GenerateAgreementDataWithECC",
    "SKF_GenerateAgreementDataAndKeyWithECC", "SKF_GenerateKeyWithECC", "SKF_ExportPublicKey",
    "SKF_ImportSessionKey", "SKF_SetSymmKey", "SKF_EncryptInit", "SKF_Encrypt", "SKF_EncryptUpdate",
    "SKF_EncryptFinal", "SKF_DecryptInit", "SKF_Decrypt", "SKF_DecryptUpdate", "SKF_DecryptFinal",
    "SKF_DigestInit", "SKF_Digest", "SKF_DigestUpdate", "SKF_DigestFinal", "SKF_MacInit", "SKF_Mac",
    "SKF_MacUpdate", "SKF_MacFinal", "SKF_CloseHandle", "SKF_RSADecrypt", "SKF_ECCDecrypt", "SKFEX_ECCDecrypt",
    "SKFEX_RSADecrypt", "SKF_LoadConfigurationWithPath", "SKF_LoadConfigurationWithContent",
};

// The T stored at offset at of the image, read as this (little-endian) machine reads it.
template <class T>
T get(const std::string& img, uint64_t at) {
  if (at > img.size() || sizeof(T) > img.size() - at) throw std::out_of_range("read past the end of the image");
  T v;
  std::memcpy(&v, img.data() + at, sizeof v);
  return v;
}

std::string cstr(const std::string& img, uint64_t at) {
  if (at >= img.size()) throw std::out_of_range("name past the end of the image");
  return std::string(img.c_str() + at);
}

// Defined global and weak symbols of .dynsym.
std::vector<std::string> elf_exports(const std::string& img) {
  uint64_t shoff = get<uint64_t>(img, 0x28);
  uint16_t shentsize = get<uint16_t>(img, 0x3A), shnum = get<uint16_t>(img, 0x3C);
  std::vector<std::string> names;
  for (uint16_t i = 0; i < shnum; ++i) {
    uint64_t sh = shoff + uint64_t(i) * shentsize;
    if (get<uint32_t>(img, sh + 4) != 11) continue;  // SHT_DYNSYM
    uint64_t symOff = get<uint64_t>(img, sh + 0x18), symSize = get<uint64_t>(img, sh + 0x20);
    uint32_t link = get<uint32_t>(img, sh + 0x28);
    uint64_t strOff = get<uint64_t>(img, shoff + uint64_t(link) * shentsize + 0x18);
    for (uint64_t s = symOff + 24; s + 24 <= symOff + symSize; s += 24) {
      uint8_t info = get<uint8_t>(img, s + 4);
      uint16_t shndx = get<uint16_t>(img, s + 6);
      int bind = info >> 4;
      if (shndx == 0 || (bind != 1 && bind != 2)) continue;
      names.push_back(cstr(img, strOff + get<uint32_t>(img, s)));
    }
  }
  return names;
}

// Names of the PE32+ export directory.
std::vector<std::string> pe_exports(const std::string& img) {
  uint32_t pe = get<uint32_t>(img, 0x3C);
  if (get<uint32_t>(img, pe) != 0x00004550) throw std::runtime_error("no PE signature");
  uint16_t sections = get<uint16_t>(img, pe + 6), optSize = get<uint16_t>(img, pe + 20);
  uint64_t opt = pe + 24;
  if (get<uint16_t>(img, opt) != 0x20B) throw std::runtime_error("not PE32+");
  uint32_t exportRva = get<uint32_t>(img, opt + 112);
  uint64_t sectionTable = opt + optSize;
  auto offset_of = [&](uint32_t rva) -> uint64_t {
    for (uint16_t i = 0; i < sections; ++i) {
      uint64_t s = sectionTable + uint64_t(i) * 40;
      uint32_t va = get<uint32_t>(img, s + 12), size = std::max(get<uint32_t>(img, s + 8), get<uint32_t>(img, s + 16));
      if (rva >= va && rva < va + size) return uint64_t(rva - va) + get<uint32_t>(img, s + 20);
    }
    throw std::runtime_error("rva outside every section");
  };
  std::vector<std::string> names;
  if (exportRva == 0) return names;
  uint64_t dir = offset_of(exportRva);
  uint32_t count = get<uint32_t>(img, dir + 24);
  uint64_t nameTable = offset_of(get<uint32_t>(img, dir + 32));
  for (uint32_t i = 0; i < count; ++i) names.push_back(cstr(img, offset_of(get<uint32_t>(img, nameTable + 4ull * i))));
  return names;
}

TEST(ExportTable, TheLibraryExportsExactlyTheSkfFunctions) {
  std::string path = testsupport::module_path(VORELSKF_LIBRARY);
  std::string img = testsupport::read_file(path);
  std::vector<std::string> exported;
  if (img.rfind("\177ELF", 0) == 0) {
    exported = elf_exports(img);
  } else if (img.rfind("MZ", 0) == 0) {
    exported = pe_exports(img);
  } else {
    FAIL() << "unknown binary format: " << path;
  }
  std::multiset<std::string> got(exported.begin(), exported.end());
  std::multiset<std::string> want(std::begin(kExpected), std::end(kExpected));
  EXPECT_EQ(got, want);
}

}  // namespace

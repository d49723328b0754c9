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

class Image {
 public:
  explicit Image(std::string bytes) : b_(std::move(bytes)) {}
  template <class T>
  T get(uint64_t at) const {
    if (at > b_.size() || sizeof(T) > b_.size() - at) throw std::out_of_range("read past the end of the image");
    T v;
    std::memcpy(&v, b_.data() + at, sizeof v);
    return v;
  }
  std::string cstr(uint64_t at) const {
    if (at >= b_.size()) throw std::out_of_range("name past the end of the image");
    return std::string(b_.c_str() + at);
  }
  bool starts_with(const char* magic, std::size_t n) const { return b_.size() >= n && b_.compare(0, n, magic, n) == 0; }

 private:
  std::string b_;
};

// Defined global and weak symbols of .dynsym.
std::vector<std::string> elf_exports(const Image& img) {
  uint64_t shoff = img.get<uint64_t>(0x28);
  uint16_t shentsize = img.get<uint16_t>(0x3A), shnum = img.get<uint16_t>(0x3C);
  std::vector<std::string> names;
  for (uint16_t i = 0; i < shnum; ++i) {
    uint64_t sh = shoff + uint64_t(i) * shentsize;
    if (img.get<uint32_t>(sh + 4) != 11) continue;  // SHT_DYNSYM
    uint64_t symOff = img.get<uint64_t>(sh + 0x18), symSize = img.get<uint64_t>(sh + 0x20);
    uint32_t link = img.get<uint32_t>(sh + 0x28);
    uint64_t strOff = img.get<uint64_t>(shoff + uint64_t(link) * shentsize + 0x18);
    for (uint64_t s = symOff + 24; s + 24 <= symOff + symSize; s += 24) {
      uint8_t info = img.get<uint8_t>(s + 4);
      uint16_t shndx = img.get<uint16_t>(s + 6);
      int bind = info >> 4;
      if (shndx == 0 || (bind != 1 && bind != 2)) continue;
      names.push_back(img.cstr(strOff + img.get<uint32_t>(s)));
    }
  }
  return names;
}

// Names of the PE32+ export directory.
std::vector<std::string> pe_exports(const Image& img) {
  uint32_t pe = img.get<uint32_t>(0x3C);
  if (img.get<uint32_t>(pe) != 0x00004550) throw std::runtime_error("no PE signature");
  uint16_t sections = img.get<uint16_t>(pe + 6), optSize = img.get<uint16_t>(pe + 20);
  uint64_t opt = pe + 24;
  if (img.get<uint16_t>(opt) != 0x20B) throw std::runtime_error("not PE32+");
  uint32_t exportRva = img.get<uint32_t>(opt + 112);
  uint64_t sectionTable = opt + optSize;
  auto offset_of = [&](uint32_t rva) -> uint64_t {
    for (uint16_t i = 0; i < sections; ++i) {
      uint64_t s = sectionTable + uint64_t(i) * 40;
      uint32_t va = img.get<uint32_t>(s + 12), size = std::max(img.get<uint32_t>(s + 8), img.get<uint32_t>(s + 16));
      if (rva >= va && rva < va + size) return uint64_t(rva - va) + img.get<uint32_t>(s + 20);
    }
    throw std::runtime_error("rva outside every section");
  };
  std::vector<std::string> names;
  if (exportRva == 0) return names;
  uint64_t dir = offset_of(exportRva);
  uint32_t count = img.get<uint32_t>(dir + 24);
  uint64_t nameTable = offset_of(img.get<uint32_t>(dir + 32));
  for (uint32_t i = 0; i < count; ++i) names.push_back(img.cstr(offset_of(img.get<uint32_t>(nameTable + 4ull * i))));
  return names;
}

TEST(ExportTable, TheLibraryExportsExactlyTheSkfFunctions) {
  std::string path = testsupport::module_path(VORELSKF_LIBRARY);
  Image img(testsupport::read_file(path));
  std::vector<std::string> exported;
  if (img.starts_with("\x7f" "ELF", 4)) {
    exported = elf_exports(img);
  } else if (img.starts_with("MZ", 2)) {
    exported = pe_exports(img);
  } else {
    FAIL() << "unknown binary format: " << path;
  }
  std::multiset<std::string> got(exported.begin(), exported.end());
  std::multiset<std::string> want(std::begin(kExpected), std::end(kExpected));
  EXPECT_EQ(want.size(), 85u);
  EXPECT_EQ(got, want);
}

}  // namespace

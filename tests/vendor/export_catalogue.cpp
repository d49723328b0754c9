#include "export_catalogue.h"

#include <type_traits>

namespace device {

const char* const kSlotNames[kKinds] = {"device", "application", "container", "session key", "hash", "MAC"};

namespace {

// An argument as the recording module keeps it: pointers as addresses, numbers as they are.
template <class T>
uint64_t seen(T v) {
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<uintptr_t>(v);
  else
    return static_cast<uint64_t>(static_cast<std::make_unsigned_t<T>>(v));
}
// A structure passed by value: the module keeps a digest of its bytes.
uint64_t seen(const BLOCKCIPHERPARAM& p) {
  uint64_t h = 1469598103934665603ull;
  const auto* b = reinterpret_cast<const unsigned char*>(&p);
  for (std::size_t i = 0; i < sizeof p; ++i) h = (h ^ b[i]) * 1099511628211ull;
  return h;
}

// A row whose export takes its handle first: the call and what the vendor sees come from the
// same arguments.
template <class... P, class... A>
ExportRow row(Args& x, const char* name, Slot slot, Route route, ULONG(DEVAPI* fn)(HANDLE, P...), A... a) {
  static_assert(sizeof...(P) == sizeof...(A), "one argument per parameter");
  return {name, slot, route,
          [&x, fn, a...](HANDLE h) {
            x.len = sizeof x.out;
            return fn(h, static_cast<P>(a)...);
          },
          [route, a...](uint64_t vendorHandle) {
            std::vector<uint64_t> v{vendorHandle, seen(static_cast<P>(a))...};
            if (route == kWraps) v.pop_back();
            return v;
          }};
}

ExportRow fixed(const char* name, ULONG answer, std::function<ULONG()> call) {
  return {name, kNone, kOwn, [call](HANDLE) { return call(); }, nullptr, answer};
}

}  // namespace

Catalogue::Catalogue() {
  Args& x = args;
  ULONG* n = &x.len;
  rows = {
      fixed("SKF_WaitForDevEvent", SAR_NOT_EMULATED, [&x, n] { return SKF_WaitForDevEvent(x.text, n, &x.a); }),
      fixed("SKF_CancelWaitForDevEvent", SAR_NOT_EMULATED, [] { return SKF_CancelWaitForDevEvent(); }),
      fixed("SKF_EnumDev", SAR_OK, [&x] { return SKF_EnumDev(FALSE, nullptr, &x.len); }),
      fixed("SKF_ConnectDev", SAR_INVALIDPARAMERR, [&x] { return SKF_ConnectDev(x.badName, &x.made); }),
      row(x, "SKF_DisConnectDev", kDevice, kCloses, SKF_DisConnectDev),
      fixed("SKF_GetDevState", SAR_INVALIDPARAMERR, [&x] { return SKF_GetDevState(x.badName, &x.a); }),
      row(x, "SKF_SetLabel", kDevice, kForwarded, SKF_SetLabel, x.text),
      row(x, "SKF_GetDevInfo", kDevice, kOwn, SKF_GetDevInfo, &x.info),
      row(x, "SKF_LockDev", kDevice, kForwarded, SKF_LockDev, 1234),
      row(x, "SKF_UnlockDev", kDevice, kForwarded, SKF_UnlockDev),
      row(x, "SKF_Transmit", kDevice, kForwarded, SKF_Transmit, x.in, 4, x.out, n),
      row(x, "SKF_ChangeDevAuthKey", kDevice, kForwarded, SKF_ChangeDevAuthKey, x.in, 16),
      row(x, "SKF_DevAuth", kDevice, kForwarded, SKF_DevAuth, x.in, 16),
      row(x, "SKF_ChangePIN", kApplication, kForwarded, SKF_ChangePIN, ADMIN_TYPE, x.pin, x.other, &x.a),
      row(x, "SKF_GetPINInfo", kApplication, kForwarded, SKF_GetPINInfo, USER_TYPE, &x.a, &x.b, &x.flag),
      row(x, "SKF_VerifyPIN", kApplication, kForwarded, SKF_VerifyPIN, USER_TYPE, x.pin, &x.a),
      row(x, "SKF_UnblockPIN", kApplication, kForwarded, SKF_UnblockPIN, x.other, x.pin, &x.a),
      row(x, "SKF_ClearSecureState", kApplication, kForwarded, SKF_ClearSecureState),
      row(x, "SKF_GetSecureState", kApplication, kForwarded, SKF_GetSecureState, &x.a),
      row(x, "SKF_CreateApplication", kDevice, kWraps, SKF_CreateApplication, x.text, x.other, 6, x.pin, 5, 0xFF,
          &x.made),
      row(x, "SKF_EnumApplication", kDevice, kForwarded, SKF_EnumApplication, nullptr, n),
      row(x, "SKF_DeleteApplication", kDevice, kForwarded, SKF_DeleteApplication, x.text),
      row(x, "SKF_OpenApplication", kDevice, kWraps, SKF_OpenApplication, x.app, &x.made),
      row(x, "SKF_CloseApplication", kApplication, kCloses, SKF_CloseApplication),
      // Files: forwarded as they are to a vendor type that keeps its own file names.
      row(x, "SKF_CreateFile", kApplication, kForwarded, SKF_CreateFile, x.text, 32, SECURE_USER_ACCOUNT, 0xFF),
      row(x, "SKF_EnumFiles", kApplication, kForwarded, SKF_EnumFiles, nullptr, n),
      row(x, "SKF_GetFileInfo", kApplication, kForwarded, SKF_GetFileInfo, x.text, &x.attr),
      row(x, "SKF_ReadFile", kApplication, kForwarded, SKF_ReadFile, x.text, 4, 16, x.out, n),
      row(x, "SKF_WriteFile", kApplication, kForwarded, SKF_WriteFile, x.text, 4, x.in, 16),
      row(x, "SKF_DeleteFile", kApplication, kForwarded, SKF_DeleteFile, x.text),
      row(x, "SKF_CreateContainer", kApplication, kWraps, SKF_CreateContainer, x.text, &x.made),
      row(x, "SKF_DeleteContainer", kApplication, kForwarded, SKF_DeleteContainer, x.text),
      row(x, "SKF_OpenContainer", kApplication, kWraps, SKF_OpenContainer, x.container, &x.made),
      row(x, "SKF_CloseContainer", kContainer, kCloses, SKF_CloseContainer),
      row(x, "SKF_EnumContainer", kApplication, kForwarded, SKF_EnumContainer, nullptr, n),
      row(x, "SKF_GetContainerType", kContainer, kForwarded, SKF_GetContainerType, &x.a),
      row(x, "SKF_ImportCertificate", kContainer, kForwarded, SKF_ImportCertificate, TRUE, x.in, 16),
      row(x, "SKF_ExportCertificate", kContainer, kForwarded, SKF_ExportCertificate, FALSE, nullptr, n),
      row(x, "SKF_GenRandom", kDevice, kForwarded, SKF_GenRandom, x.out, 16),
      row(x, "SKF_GenExtRSAKey", kDevice, kForwarded, SKF_GenExtRSAKey, 1024, &x.rsaPriv),
      row(x, "SKF_GenRSAKeyPair", kContainer, kForwarded, SKF_GenRSAKeyPair, 1024, &x.rsaPub),
      row(x, "SKF_ImportRSAKeyPair", kContainer, kForwarded, SKF_ImportRSAKeyPair, SGD_SMS4_ECB, x.in, 16, x.in + 16,
          32),
      row(x, "SKF_RSASignData", kContainer, kForwarded, SKF_RSASignData, x.in, 16, x.out, n),
      row(x, "SKF_RSAVerify", kDevice, kForwarded, SKF_RSAVerify, &x.rsaPub, x.in, 16, x.in, 128),
      // The vendor's session key and agreement handles reach the caller unwrapped.
      row(x, "SKF_RSAExportSessionKey", kContainer, kForwarded, SKF_RSAExportSessionKey, SGD_SMS4_ECB, &x.rsaPub, x.out,
          n, &x.made),
      row(x, "SKF_ExtRSAPubKeyOperation", kDevice, kForwarded, SKF_ExtRSAPubKeyOperation, &x.rsaPub, x.in, 128, x.out,
          n),
      row(x, "SKF_ExtRSAPriKeyOperation", kDevice, kForwarded, SKF_ExtRSAPriKeyOperation, &x.rsaPriv, x.in, 128, x.out,
          n),
      row(x, "SKF_GenECCKeyPair", kContainer, kForwarded, SKF_GenECCKeyPair, SGD_SM2_1, &x.eccPub),
      row(x, "SKF_ImportECCKeyPair", kContainer, kForwarded, SKF_ImportECCKeyPair, &x.envelope),
      row(x, "SKF_ECCSignData", kContainer, kForwarded, SKF_ECCSignData, x.in, 32, &x.sig),
      row(x, "SKF_ECCVerify", kDevice, kForwarded, SKF_ECCVerify, &x.eccPub, x.in, 32, &x.sig),
      row(x, "SKF_ECCExportSessionKey", kContainer, kForwarded, SKF_ECCExportSessionKey, SGD_SMS4_ECB, &x.eccPub,
          x.ct(), &x.made),
      row(x, "SKF_ExtECCEncrypt", kDevice, kForwarded, SKF_ExtECCEncrypt, &x.eccPub, x.in, 16, x.ct()),
      row(x, "SKF_ExtECCDecrypt", kDevice, kForwarded, SKF_ExtECCDecrypt, &x.eccPriv, x.ct(), x.out, n),
      row(x, "SKF_ExtECCSign", kDevice, kForwarded, SKF_ExtECCSign, &x.eccPriv, x.in, 32, &x.sig),
      row(x, "SKF_ExtECCVerify", kDevice, kForwarded, SKF_ExtECCVerify, &x.eccPub, x.in, 32, &x.sig),
      row(x, "SKF_GenerateAgreementDataWithECC", kContainer, kForwarded, SKF_GenerateAgreementDataWithECC, SGD_SMS4_ECB,
          &x.eccPub, x.in, 16, &x.made),
      row(x, "SKF_GenerateAgreementDataAndKeyWithECC", kContainer, kForwarded, SKF_GenerateAgreementDataAndKeyWithECC,
          SGD_SMS4_ECB, &x.eccPub, &x.eccPub, &x.eccPub, x.in, 16, x.in + 16, 16, &x.made),
      fixed("SKF_GenerateKeyWithECC", SAR_NOT_EMULATED,
            [&x] { return SKF_GenerateKeyWithECC(x.made, &x.eccPub, &x.eccPub, x.in, 16, &x.made); }),
      row(x, "SKF_ExportPublicKey", kContainer, kForwarded, SKF_ExportPublicKey, TRUE, x.out, n),
      row(x, "SKF_RSADecrypt", kContainer, kFamily, SKF_RSADecrypt, FALSE, x.in, 128, x.out, n),
      row(x, "SKF_ECCDecrypt", kContainer, kFamily, SKF_ECCDecrypt, FALSE, x.ct(), x.out, n),
      row(x, "SKFEX_ECCDecrypt", kContainer, kFamily, SKFEX_ECCDecrypt, 1, x.ct(), x.out, n),
      row(x, "SKFEX_RSADecrypt", kContainer, kFamily, SKFEX_RSADecrypt, x.in, 128, x.out, n, 1),
      row(x, "SKF_ImportSessionKey", kContainer, kWraps, SKF_ImportSessionKey, SGD_SMS4_ECB, x.in, 16, &x.made),
      row(x, "SKF_SetSymmKey", kDevice, kWraps, SKF_SetSymmKey, x.in, SGD_SMS4_ECB, &x.made),
      row(x, "SKF_EncryptInit", kKey, kForwarded, SKF_EncryptInit, x.param),
      row(x, "SKF_Encrypt", kKey, kForwarded, SKF_Encrypt, x.in, 16, x.out, n),
      row(x, "SKF_EncryptUpdate", kKey, kForwarded, SKF_EncryptUpdate, x.in, 16, x.out, n),
      row(x, "SKF_EncryptFinal", kKey, kForwarded, SKF_EncryptFinal, x.out, n),
      row(x, "SKF_DecryptInit", kKey, kForwarded, SKF_DecryptInit, x.param),
      row(x, "SKF_Decrypt", kKey, kForwarded, SKF_Decrypt, x.in, 16, x.out, n),
      row(x, "SKF_DecryptUpdate", kKey, kForwarded, SKF_DecryptUpdate, x.in, 16, x.out, n),
      row(x, "SKF_DecryptFinal", kKey, kForwarded, SKF_DecryptFinal, x.out, n),
      row(x, "SKF_DigestInit", kDevice, kWraps, SKF_DigestInit, SGD_SM3, nullptr, nullptr, 0, &x.made),
      row(x, "SKF_Digest", kHash, kForwarded, SKF_Digest, x.in, 16, x.out, n),
      row(x, "SKF_DigestUpdate", kHash, kForwarded, SKF_DigestUpdate, x.in, 16),
      row(x, "SKF_DigestFinal", kHash, kForwarded, SKF_DigestFinal, x.out, n),
      row(x, "SKF_MacInit", kKey, kWraps, SKF_MacInit, &x.param, &x.made),
      row(x, "SKF_Mac", kMac, kForwarded, SKF_Mac, x.in, 16, x.out, n),
      row(x, "SKF_MacUpdate", kMac, kForwarded, SKF_MacUpdate, x.in, 16),
      row(x, "SKF_MacFinal", kMac, kForwarded, SKF_MacFinal, x.out, n),
      row(x, "SKF_CloseHandle", kAnyGeneric, kCloses, SKF_CloseHandle),
      fixed("SKF_LoadConfigurationWithPath", SAR_FAIL, [&x] { return SKF_LoadConfigurationWithPath(x.badPath); }),
      fixed("SKF_LoadConfigurationWithContent", SAR_FAIL, [&x] { return SKF_LoadConfigurationWithContent(x.badJson); }),
  };
}

HandleSet open_under(DEVHANDLE dev, const testsupport::Recorder* rec) {
  HandleSet s;
  auto opened = [&](int kind, ULONG rc) {
    EXPECT_EQ(rc, kOk) << kSlotNames[kind];
    if (rec) s.vendor[kind] = rec->handle();
  };
  s.h[kDevice] = dev;
  if (rec) s.vendor[kDevice] = rec->last("SKF_GetDevInfo").at(0);
  char app[] = "VOREL", container[] = "C";
  opened(kApplication, SKF_OpenApplication(dev, app, &s.h[kApplication]));
  opened(kContainer, SKF_OpenContainer(s.h[kApplication], container, &s.h[kContainer]));
  BYTE key[32] = {1, 2, 3};
  opened(kKey, SKF_SetSymmKey(dev, key, SGD_SMS4_CBC, &s.h[kKey]));
  opened(kHash, SKF_DigestInit(dev, SGD_SM3, nullptr, nullptr, 0, &s.h[kHash]));
  BLOCKCIPHERPARAM param{};
  param.IVLen = 16;
  opened(kMac, SKF_MacInit(s.h[kKey], &param, &s.h[kMac]));
  return s;
}

// The other kinds' exports refuse a handle untouched; a parent's close leaves its children open.
void close_any(HANDLE h) {
  if (h && SKF_CloseHandle(h) != kOk && SKF_CloseContainer(h) != kOk && SKF_CloseApplication(h) != kOk)
    SKF_DisConnectDev(h);
}

void close_set(const HandleSet& s) {
  for (int k = kMac; k >= kDevice; --k) close_any(s.h[k]);
}

}  // namespace device

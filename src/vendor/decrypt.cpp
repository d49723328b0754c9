#include "vendor/decrypt.h"

#include <vector>

#include "skf/blobs.h"

namespace vorel {

namespace {

// The families and the device types they serve.
enum class Family {
  None,
  Hsic,
  FeitianBluetooth,
  Longmai,
  Wintrust,
  Olym,
  Dingxin,
  EsSjk1944g,
  FeitianSjk1104g,
  Biocome,
  Fisec
};

Family family_of(int32_t type) {
  switch (type) {
    case 49:
      return Family::Hsic;
    case 50:
      return Family::FeitianBluetooth;
    case 54:
    case 55:
    case 56:
      return Family::Longmai;
    case 57:
    case 62:
      return Family::Wintrust;
    case 64:
      return Family::Olym;
    case 66:
      return Family::Dingxin;
    case 68:
      return Family::EsSjk1944g;
    case 70:
      return Family::FeitianSjk1104g;
    case 73:
      return Family::Biocome;
    case 75:
      return Family::Fisec;
    default:
      return Family::None;
  }
}

const char* prefix_of(Family f) {
  switch (f) {
    case Family::Hsic:
      return "HSIC";
    case Family::FeitianBluetooth:
      return "FEITIAN_BLUETOOTH";
    case Family::Longmai:
      return "LONGMAI";
    case Family::Wintrust:
      return "WINTRUST";
    case Family::Olym:
      return "OLYM";
    case Family::Dingxin:
      return "DINGXIN";
    case Family::EsSjk1944g:
      return "ES_SJK1944G";
    case Family::FeitianSjk1104g:
      return "FEITIAN_SJK1104G";
    case Family::Biocome:
      return "BIOCOME";
    case Family::Fisec:
      return "FISEC";
    default:
      return "";
  }
}

ULONG missing(Ctx ctx, Family family, const char* name) {
  VLOG_ERROR(ctx.name(), "%s_%s is not support", prefix_of(family), name);
  return SAR_NOTSUPPORTYETERR;
}

// Calls the family's function, or says that the module lacks it.
template <class Fn, class... Args>
ULONG call_vendor(Ctx ctx, Family family, const char* name, Fn fn, Args... args) {
  return fn ? fn(args...) : missing(ctx, family, name);
}

ULONG no_family(Ctx ctx, int32_t type) {
  VLOG_ERROR(ctx.name(), "device type : %d has no private-key decryption", type);
  return SAR_NOTSUPPORTYETERR;
}

}  // namespace

ULONG SKF_ECCDecrypt_CallBack(Ctx ctx, const SkfDll& dll, const ContainerRecord& container, BOOL sign,
                              PECCCIPHERBLOB cipher, BYTE* out, ULONG* outLen) {
  int32_t type = static_cast<int32_t>(container.type);
  Family family = family_of(type);
  HCONTAINER h = container.vendorContainer;
  switch (family) {
    case Family::Hsic:
    case Family::Fisec:
      // The key selector: 2 picks the signing key pair, 1 the encryption key pair.
      return call_vendor(ctx, family, "SKF_PrvKeyDecrypt", dll.SKF_PrvKeyDecrypt_vendor, h, sign ? 2u : 1u, cipher, out,
                         outLen);
    case Family::FeitianBluetooth:
    case Family::Longmai:
      return call_vendor(ctx, family, "SKF_ECCPrvKeyDecrypt", dll.SKF_ECCPrvKeyDecrypt_vendor, h, sign, cipher, out,
                         outLen);
    case Family::Wintrust:
    case Family::EsSjk1944g:
    case Family::Biocome:
      return call_vendor(ctx, family, "SKF_ECCDecrypt", dll.SKF_ECCDecrypt_vendor, h, sign, cipher, out, outLen);
    case Family::Dingxin:
      return call_vendor(ctx, family, "V_ECCPrvKeyDecrypt", dll.V_ECCPrvKeyDecrypt_vendor, h, sign, cipher, out,
                         outLen);
    case Family::FeitianSjk1104g:
      return call_vendor(ctx, family, "SKF_ECCDecryptEx", dll.SKF_ECCDecryptEx_vendor, h, sign, cipher, out, outLen);
    case Family::Olym: {
      const char* name = sign ? "SKF_ECCDecryptDataWithSignSK" : "SKF_ECCDecryptData";
      VendorEccDataDecrypt fn = sign ? dll.SKF_ECCDecryptDataWithSignSK_vendor : dll.SKF_ECCDecryptData_vendor;
      if (!fn) return missing(ctx, family, name);
      // OLYM takes the cipher text as one byte string, C1 || C3 || C2.
      std::vector<uint8_t> text;
      if (!cipher_text_c1c3c2(*cipher, text, kMaxEccDataLen)) {
        VLOG_ERROR(ctx.name(), "Could not convert pCipherText");
        return SAR_INVALIDPARAMERR;
      }
      return call_vendor(ctx, family, name, fn, h, text.data(), static_cast<ULONG>(text.size()), out, outLen);
    }
    default:
      return no_family(ctx, type);
  }
}

ULONG SKF_RSADecrypt_CallBack(Ctx ctx, const SkfDll& dll, const ContainerRecord& container, BOOL sign, BYTE* in,
                              ULONG inLen, BYTE* out, ULONG* outLen) {
  int32_t type = static_cast<int32_t>(container.type);
  Family family = family_of(type);
  HCONTAINER h = container.vendorContainer;
  switch (family) {
    case Family::None:
      return no_family(ctx, type);
    case Family::Olym:
      return call_vendor(ctx, family, "SKF_RSADecryptDataEx", dll.SKF_RSADecryptDataEx_vendor, h, sign, in, inLen, out,
                         outLen);
    case Family::Dingxin:
      return call_vendor(ctx, family, "V_RSAPrvKeyDecrypt", dll.V_RSAPrvKeyDecrypt_vendor, h, sign, in, inLen, out,
                         outLen);
    default:
      return call_vendor(ctx, family, "SKF_RSADecrypt", dll.SKF_RSADecrypt, h, sign, in, inLen, out, outLen);
  }
}

}  // namespace vorel

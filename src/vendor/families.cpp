#include "vendor/families.h"

#include <cstring>
#include <vector>

#include "core/config.h"
#include "skf/blobs.h"

namespace vorel {

// How a family's module decrypts with a container's private key. ECC: a function taking the
// signing flag, one taking a key selector (2 signing, 1 encryption), or two taking the cipher
// text as one string C1 || C3 || C2, one per key pair. RSA: a function taking the signing flag.
struct Family {
  const char* name;  // the prefix of its messages
  const char* ecc;   // the function's name; for the data form, the signing pair's
  VendorEccDecrypt SkfDll::*eccByFlag;
  VendorEccKeySpecDecrypt SkfDll::*eccByKeySpec;
  VendorEccDataDecrypt SkfDll::*eccDataSign;
  const char* eccEnc;  // the data form: the encryption pair's function
  VendorEccDataDecrypt SkfDll::*eccDataEnc;
  const char* rsa;
  VendorRsaDecrypt SkfDll::*rsaByFlag;
  int types[3];  // the device types of the family when the configuration names none
};

namespace {

#define BY_FLAG(fn) #fn, &SkfDll::fn##_vendor, nullptr, nullptr, nullptr, nullptr
#define BY_KEY_SPEC(fn) #fn, nullptr, &SkfDll::fn##_vendor, nullptr, nullptr, nullptr
#define RSA_STANDARD "SKF_RSADecrypt", &SkfDll::SKF_RSADecrypt
#define RSA_VENDOR(fn) #fn, &SkfDll::fn##_vendor

const Family kFamilies[] = {
    {"HSIC", BY_KEY_SPEC(SKF_PrvKeyDecrypt), RSA_STANDARD, {49}},
    {"FEITIAN_BLUETOOTH", BY_FLAG(SKF_ECCPrvKeyDecrypt), RSA_STANDARD, {50}},
    {"LONGMAI", BY_FLAG(SKF_ECCPrvKeyDecrypt), RSA_STANDARD, {54, 55, 56}},
    {"WINTRUST", BY_FLAG(SKF_ECCDecrypt), RSA_STANDARD, {57, 62}},
    {"OLYM",
     "SKF_ECCDecryptDataWithSignSK",
     nullptr,
     nullptr,
     &SkfDll::SKF_ECCDecryptDataWithSignSK_vendor,
     "SKF_ECCDecryptData",
     &SkfDll::SKF_ECCDecryptData_vendor,
     RSA_VENDOR(SKF_RSADecryptDataEx),
     {64}},
    {"DINGXIN", BY_FLAG(V_ECCPrvKeyDecrypt), RSA_VENDOR(V_RSAPrvKeyDecrypt), {66}},
    {"ES_SJK1944G", BY_FLAG(SKF_ECCDecrypt), RSA_STANDARD, {68}},
    {"FEITIAN_SJK1104G", BY_FLAG(SKF_ECCDecryptEx), RSA_STANDARD, {70}},
    {"BIOCOME", BY_FLAG(SKF_ECCDecrypt), RSA_STANDARD, {73}},
    {"FISEC", BY_KEY_SPEC(SKF_PrvKeyDecrypt), RSA_STANDARD, {75}},
};

#undef BY_FLAG
#undef BY_KEY_SPEC
#undef RSA_STANDARD
#undef RSA_VENDOR

// The family of a container's device type, or null, logged.
const Family* family_of(Ctx ctx, int32_t type) {
  auto config = GetVorelSKFConfig().find(type);
  if (config && !config->decryptFamily.empty()) {
    for (const Family& f : kFamilies)
      if (config->decryptFamily == f.name) return &f;
    VLOG_ERROR(ctx.name(), "decryptFamily %s of device type %d is no family we know", config->decryptFamily.c_str(),
               type);
    return nullptr;
  } else {
    for (const Family& f : kFamilies)
      for (int t : f.types)
        if (t == type) return &f;
  }
  VLOG_ERROR(ctx.name(), "device type : %d has no private-key decryption", type);
  return nullptr;
}

ULONG missing(Ctx ctx, const Family& family, const char* function) {
  VLOG_ERROR(ctx.name(), "%s_%s is not support", family.name, function);
  return SAR_NOTSUPPORTYETERR;
}

}  // namespace

ULONG family_ecc_decrypt(const VendorCall& v, const ContainerRecord& container, BOOL sign, PECCCIPHERBLOB cipher,
                         BYTE* out, ULONG* outLen) {
  const Family* f = family_of(v.ctx(), static_cast<int32_t>(container.type));
  if (!f) return SAR_NOTSUPPORTYETERR;
  const SkfDll& dll = v.dll();
  HCONTAINER h = container.vendorContainer;
  if (f->eccByFlag) {
    auto fn = dll.*f->eccByFlag;
    return fn ? fn(h, sign, cipher, out, outLen) : missing(v.ctx(), *f, f->ecc);
  }
  if (f->eccByKeySpec) {
    auto fn = dll.*f->eccByKeySpec;
    return fn ? fn(h, sign ? 2u : 1u, cipher, out, outLen) : missing(v.ctx(), *f, f->ecc);
  }
  const char* name = sign ? f->ecc : f->eccEnc;
  auto fn = dll.*(sign ? f->eccDataSign : f->eccDataEnc);
  if (!fn) return missing(v.ctx(), *f, name);
  std::vector<uint8_t> text;
  if (!cipher_text_c1c3c2(*cipher, text, kMaxEccDataLen)) {
    VLOG_ERROR(v.ctx().name(), "Could not convert pCipherText");
    return SAR_INVALIDPARAMERR;
  }
  return fn(h, text.data(), static_cast<ULONG>(text.size()), out, outLen);
}

ULONG family_rsa_decrypt(const VendorCall& v, const ContainerRecord& container, BOOL sign, BYTE* in, ULONG inLen,
                         BYTE* out, ULONG* outLen) {
  const Family* f = family_of(v.ctx(), static_cast<int32_t>(container.type));
  if (!f) return SAR_NOTSUPPORTYETERR;
  auto fn = v.dll().*f->rsaByFlag;
  return fn ? fn(container.vendorContainer, sign, in, inLen, out, outLen) : missing(v.ctx(), *f, f->rsa);
}

}  // namespace vorel

// Public keys and certificates of containers; SM2 and RSA signatures; SM2 encryption; digests and MACs.
#include <cstdio>

#include "commands.h"
#include "keys.h"
#include "text.h"

namespace skftool {

namespace {

bool use_sign(const Options& o, bool byDefault) { return o.use.empty() ? byDefault : o.use == "sign"; }

// The key of --pubkey or --cert, else of the container's pair of --use.
PublicKey key_to_use(const Options& o, const Device& dev, bool signByDefault) {
  if (!o.pubkey.empty()) return public_key_from_file(o.pubkey);
  if (!o.cert.empty()) return public_key_from_certificate(read_der(o.cert, {"CERTIFICATE"}, "certificate"));
  if (o.container.empty()) throw Failure("give --pubkey, --cert or --container", kUsage);
  Application app(dev, o.app);
  Container c(app, o.container);
  bool sign = use_sign(o, signByDefault);
  Bytes blob = c.public_blob(sign);
  if (blob.empty()) throw Failure(c.name() + " has no " + (sign ? "signing" : "encryption") + " key pair");
  return public_key_from_blob(blob);
}

// The hash of data through the device, with the SM2 Z value of key and id when key is given.
Bytes digest(const Device& dev, ULONG alg, const PublicKey* key, const std::string& id, const Bytes& data) {
  const SkfLibrary& lib = dev.lib();
  Handle h(lib);
  ECCPUBLICKEYBLOB pub{};
  if (key) pub = key->ecc;
  std::string ident = id;
  check(lib.SKF_DigestInit(dev.handle(), alg, key ? &pub : nullptr,
                           key ? reinterpret_cast<unsigned char*>(&ident[0]) : nullptr,
                           key ? static_cast<ULONG>(ident.size()) : 0, h.out()),
        "starting the digest");
  const std::size_t chunk = 64 * 1024;
  for (std::size_t at = 0; at < data.size(); at += chunk) {
    ULONG n = static_cast<ULONG>(data.size() - at < chunk ? data.size() - at : chunk);
    check(lib.SKF_DigestUpdate(h.get(), const_cast<BYTE*>(data.data() + at), n), "hashing");
  }
  BYTE out[64];
  ULONG len = sizeof out;
  check(lib.SKF_DigestFinal(h.get(), out, &len), "finishing the digest");
  return Bytes(out, out + len);
}

ULONG hash_alg(const std::string& name) {
  if (name == "sm3") return SGD_SM3;
  if (name == "sha1") return SGD_SHA1;
  if (name == "sha256") return SGD_SHA256;
  throw Failure("--alg must be sm3, sha1 or sha256", kUsage);
}

void need_sm2(const PublicKey& key, const char* what) {
  if (key.type != 2) throw Failure(std::string(what) + " takes an SM2 key");
}

}  // namespace

int cmd_export_pubkey(const Options& o) {
  Session s(o, Pin::None);
  Container c(s.app, o.container);
  bool sign = use_sign(o, true);
  Bytes blob = c.public_blob(sign);
  if (blob.empty()) throw Failure(c.name() + " has no " + (sign ? "signing" : "encryption") + " key pair");
  if (o.blob) {
    write_output(o.out, blob);
    return kDone;
  }
  Bytes der = spki_of(public_key_from_blob(blob));
  if (o.der)
    write_output(o.out, der);
  else
    write_output(o.out, vorel_tools::pem_encode("PUBLIC KEY", der));
  return kDone;
}

int cmd_export_cert(const Options& o) {
  Session s(o, Pin::None);
  Container c(s.app, o.container);
  bool sign = use_sign(o, true);
  Bytes der = c.certificate(sign);
  if (der.empty()) throw Failure(c.name() + " has no " + (sign ? "signing" : "encryption") + " certificate");
  if (o.der)
    write_output(o.out, der);
  else
    write_output(o.out, vorel_tools::pem_encode("CERTIFICATE", der));
  return kDone;
}

int cmd_import_cert(const Options& o) {
  Bytes der = read_der(o.in, {"CERTIFICATE"}, "certificate");
  Session s(o, Pin::Required);
  Container c(s.app, o.container);
  bool sign = use_sign(o, true);
  check(s.lib->SKF_ImportCertificate(c.handle(), sign ? TRUE : FALSE, der.data(), static_cast<ULONG>(der.size())),
        "importing " + o.in);
  std::printf("Certificate stored with the %s key pair of %s\n", sign ? "signing" : "encryption", c.name().c_str());
  return kDone;
}

int cmd_sign(const Options& o) {
  Bytes data = read_input(o.in);
  Session s(o, Pin::Required);
  Container c(s.app, o.container);
  ULONG type = c.type();
  if (type == 2) {
    PublicKey pub = public_key_from_blob(c.public_blob(true));
    Bytes hash = digest(s.dev, SGD_SM3, &pub, o.id, data);
    ECCSIGNATUREBLOB sig{};
    check(s.lib->SKF_ECCSignData(c.handle(), hash.data(), static_cast<ULONG>(hash.size()), &sig), "signing");
    write_output(o.out, ecc_signature_der(sig));
  } else if (type == 1) {
    Bytes info = sha256_digest_info(digest(s.dev, SGD_SHA256, nullptr, "", data));
    BYTE sig[MAX_RSA_MODULUS_LEN];
    ULONG len = sizeof sig;
    check(s.lib->SKF_RSASignData(c.handle(), info.data(), static_cast<ULONG>(info.size()), sig, &len), "signing");
    write_output(o.out, Bytes(sig, sig + len));
  } else {
    throw Failure(c.name() + " holds no key pair");
  }
  if (!o.out.empty() && o.out != "-") std::fprintf(stderr, "Signature written to %s\n", o.out.c_str());
  return kDone;
}

int cmd_verify(const Options& o) {
  Bytes data = read_input(o.in), sig = read_input(o.sig);
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  PublicKey key = key_to_use(o, dev, true);
  ULONG rc;
  if (key.type == 2) {
    Bytes hash = digest(dev, SGD_SM3, &key, o.id, data);
    ECCSIGNATUREBLOB blob = ecc_signature_blob(sig);
    rc = lib->SKF_ECCVerify(dev.handle(), &key.ecc, hash.data(), static_cast<ULONG>(hash.size()), &blob);
  } else {
    Bytes info = sha256_digest_info(digest(dev, SGD_SHA256, nullptr, "", data));
    rc = lib->SKF_RSAVerify(dev.handle(), &key.rsa, info.data(), static_cast<ULONG>(info.size()), sig.data(),
                            static_cast<ULONG>(sig.size()));
  }
  if (rc != SAR_OK) throw Failure("the signature does not verify: " + describe_code(rc));
  std::printf("Signature verified\n");
  return kDone;
}

int cmd_encrypt(const Options& o) {
  Bytes data = read_input(o.in);
  if (data.empty()) throw Failure("nothing to encrypt in " + o.in, kUsage);
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  PublicKey key = key_to_use(o, dev, false);
  need_sm2(key, "encrypt");
  Bytes blob(sizeof(ECCCIPHERBLOB) + data.size());
  auto* cipher = reinterpret_cast<ECCCIPHERBLOB*>(blob.data());
  check(lib->SKF_ExtECCEncrypt(dev.handle(), &key.ecc, data.data(), static_cast<ULONG>(data.size()), cipher),
        "encrypting");
  if (cipher->CipherLen != data.size()) throw Failure("the library answered a ciphertext of another length");
  write_output(o.out, sm2_cipher_der(*cipher));
  return kDone;
}

int cmd_decrypt(const Options& o) {
  Bytes blob = sm2_cipher_blob(read_der(o.in, {"SM2 CIPHERTEXT"}, "SM2 ciphertext"));
  auto* cipher = reinterpret_cast<ECCCIPHERBLOB*>(blob.data());
  Session s(o, Pin::Required);
  Container c(s.app, o.container);
  Bytes plain(cipher->CipherLen);
  ULONG len = cipher->CipherLen;
  check(s.lib->SKF_ECCDecrypt(c.handle(), use_sign(o, false) ? TRUE : FALSE, cipher, plain.data(), &len), "decrypting");
  plain.resize(len);
  write_output(o.out, plain);
  return kDone;
}

int cmd_digest(const Options& o) {
  ULONG alg = hash_alg(o.alg);
  Bytes data = read_input(o.in);
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  bool withZ = !o.pubkey.empty() || !o.cert.empty() || !o.container.empty();
  if (withZ && alg != SGD_SM3) throw Failure("the Z value goes with --alg sm3 only", kUsage);
  PublicKey key;
  if (withZ) {
    key = key_to_use(o, dev, true);
    need_sm2(key, "a digest with Z");
  }
  std::printf("%s\n", to_hex(digest(dev, alg, withZ ? &key : nullptr, o.id, data)).c_str());
  return kDone;
}

int cmd_mac(const Options& o) {
  Bytes key = from_hex(o.key, "--key"), iv = o.iv.empty() ? Bytes(16, 0) : from_hex(o.iv, "--iv");
  if (key.size() != 16 || iv.size() != 16) throw Failure("--key and --iv must be 16 bytes (32 hex digits)", kUsage);
  Bytes data = read_input(o.in);
  if (data.size() % 16 != 0) throw Failure("the MAC takes whole 16-byte blocks: pad the input first", kUsage);
  auto lib = open_library(o);
  Device dev(*lib, o.device);
  Handle k(*lib), mac(*lib);
  check(lib->SKF_SetSymmKey(dev.handle(), key.data(), SGD_SMS4_CBC, k.out()), "setting the key");
  BLOCKCIPHERPARAM param{};
  std::copy(iv.begin(), iv.end(), param.IV);
  param.IVLen = 16;
  check(lib->SKF_MacInit(k.get(), &param, mac.out()), "starting the MAC");
  if (!data.empty())
    check(lib->SKF_MacUpdate(mac.get(), data.data(), static_cast<ULONG>(data.size())), "computing the MAC");
  BYTE out[16];
  ULONG len = sizeof out;
  check(lib->SKF_MacFinal(mac.get(), out, &len), "finishing the MAC");
  std::printf("%s\n", to_hex(Bytes(out, out + len)).c_str());
  return kDone;
}

}  // namespace skftool

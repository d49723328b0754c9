#include "token/containers.h"

#include <cstring>
#include <string>
#include <utility>

namespace vorel {

namespace {

const char* const kBuilder = "addKeypairToContainer";

// The key pair's label; false, logged, when it cannot be read.
bool label_of(VOREL_KEYPAIR* keypair, std::string& label) {
  char* raw = nullptr;
  int rc = VorelPKICryptoGetKeypairLabel(keypair, &raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(kBuilder, "VorelPKICryptoGetKeypairLabel fail, error : %d", rc);
    return false;
  }
  UniquePtr<char> owner(raw);
  label = raw;
  return true;
}

// The key pair's certificate, or null when it has none.
UniquePtr<VOREL_CERT> certificate_of(VOREL_KEYPAIR* keypair) {
  VOREL_CERT* cert = nullptr;
  if (VorelPKICryptoGetCertificate(keypair, 0, &cert) != VOREL_OK) return nullptr;
  return UniquePtr<VOREL_CERT>(cert);
}

// A string attribute of a certificate; false, logged, when it cannot be read.
bool attribute_of(VOREL_CERT* cert, int attribute, std::string& text) {
  char* raw = nullptr;
  int rc = VorelPKICertGetCertStringAttribute(cert, attribute, &raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(kBuilder, "VorelPKICertGetCertStringAttribute fail, error : %d", rc);
    return false;
  }
  UniquePtr<char> owner(raw);
  text = raw;
  return true;
}

// Whether two key pairs belong together by their certificates: subject, start and end of
// validity equal. A key pair without a certificate goes with any other.
bool certificates_agree(VOREL_KEYPAIR* a, VOREL_KEYPAIR* b) {
  VOREL_CERT* raw = nullptr;
  int rc = VorelPKICryptoGetCertificate(a, 0, &raw);
  UniquePtr<VOREL_CERT> ca(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(kBuilder, "VorelPKICryptoGetCertificate fail, error : %d", rc);
    return true;
  }
  raw = nullptr;
  rc = VorelPKICryptoGetCertificate(b, 0, &raw);
  UniquePtr<VOREL_CERT> cb(raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR(kBuilder, "VorelPKICryptoGetCertificate fail, error : %d", rc);
    return true;
  }
  for (int attribute : {VOREL_CERT_ATTR_SUBJECT, VOREL_CERT_ATTR_NOT_BEFORE, VOREL_CERT_ATTR_NOT_AFTER}) {
    std::string ta, tb;
    if (!attribute_of(ca.get(), attribute, ta) || !attribute_of(cb.get(), attribute, tb) || ta != tb) return false;
  }
  return true;
}

void set_name(ContainerRecord& c, const std::string& name) {
  std::size_t n = name.size() < sizeof c.name ? name.size() : sizeof c.name - 1;
  std::memcpy(c.name, name.data(), n);
  c.name[n] = '\0';
}

struct TimeFree {
  void operator()(vorel_time* t) const { vorel_time_free(t); }
};
using TimePtr = std::unique_ptr<vorel_time, TimeFree>;

// When the certificate stops being valid; null, logged, when that cannot be read.
TimePtr end_time(VOREL_CERT* cert) {
  char* raw = nullptr;
  int rc = VorelPKICertGetCertStringAttribute(cert, VOREL_CERT_ATTR_NOT_AFTER, &raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR("SortContainers", "VorelPKICertGetCertStringAttribute fail, error : %d", rc);
    return nullptr;
  }
  UniquePtr<char> owner(raw);
  return TimePtr(vorel_time_newutctime(raw));
}

int score(const ContainerRecord& c) {
  return (c.algorithm == VOREL_ALG_SM2 ? 16 : 0) + (c.signKeypair ? 1 : 0) + (c.encKeypair ? 1 : 0) +
         (c.signCert ? 1 : 0) + (c.encCert ? 1 : 0);
}

}  // namespace

int addKeypairToContainer(ApplicationRecord& app, VOREL_KEYPAIR* keypair) {
  int type = VorelPKICryptoGetKeypairType(keypair);
  int alg = VorelPKICryptoGetKeypairAlgorithm(keypair);
  if (type == -1 || alg == -1) return 0;
  std::string label;
  if (!label_of(keypair, label)) return 0;
  auto& slots = app.containers;
  if (type == VOREL_KEYPAIR_SIGN) {
    for (auto& slot : slots) {
      if (slot) continue;
      slot = std::make_unique<ContainerRecord>();
      set_name(*slot, label);
      slot->algorithm = static_cast<uint32_t>(alg);
      slot->cryptoDevice = app.cryptoDevice.get();
      slot->signCert = certificate_of(keypair);
      slot->signKeypair.reset(keypair);
      return 1;
    }
    return 0;
  }
  ContainerRecord* last = nullptr;
  for (auto& slot : slots)
    if (slot) last = slot.get();
  if (!last) return 0;
  if (label == last->name) {
    last->encCert = certificate_of(keypair);
    last->encKeypair.reset(keypair);  // a second one replaces the first, which is freed
    return 1;
  }
  VOREL_KEYPAIR* sign = last->signKeypair.get();
  if (VorelPKICryptoGetKeypairAlgorithm(sign) == alg && VorelPKICryptoGetKeypairBits(sign) != -1 &&
      VorelPKICryptoGetKeypairBits(keypair) != -1 && certificates_agree(sign, keypair)) {
    last->encCert = certificate_of(keypair);
    last->encKeypair.reset(keypair);
    set_name(*last, std::string(last->name) + "#" + label);
    return 1;
  }
  return 0;
}

void SortContainers(ApplicationRecord& app) {
  auto& c = app.containers;
  int n = 0;
  while (n < 8 && c[n]) ++n;
  if (n < 2) return;
  int scores[8];
  for (int i = 0; i < n; ++i) scores[i] = score(*c[i]);
  auto swap = [&](int j) {
    std::swap(c[j], c[j + 1]);
    std::swap(scores[j], scores[j + 1]);
  };
  // Most parts first, SM2 before RSA; equal scores keep their order.
  for (int i = 0; i < n - 1; ++i)
    for (int j = 0; j < n - i - 1; ++j)
      if (scores[j] < scores[j + 1]) swap(j);
  // An RSA container with more parts overtakes an SM2 container with fewer.
  for (int i = 0; i < n - 1; ++i)
    for (int j = 0; j < n - i - 1; ++j)
      if (scores[j] > 16 && scores[j + 1] < 16 && scores[j] - 16 < scores[j + 1]) swap(j);
  // Among equals, the certificate that ends later first. The right-hand container offers its
  // encryption certificate only when the left-hand one has one too.
  for (int i = 0; i < n - 1; ++i) {
    for (int j = 0; j < n - i - 1; ++j) {
      if (scores[j] != scores[j + 1]) continue;
      const ContainerRecord& left = *c[j];
      const ContainerRecord& right = *c[j + 1];
      VOREL_CERT* lc = left.signCert ? left.signCert.get() : left.encCert.get();
      VOREL_CERT* rc = right.signCert ? right.signCert.get() : (left.encCert ? right.encCert.get() : nullptr);
      if (!lc || !rc) continue;
      TimePtr lt = end_time(lc), rt = end_time(rc);
      if (!lt || !rt) continue;
      int order = vorel_time_cmp(lt.get(), rt.get());
      if (order != 0 && order != 1) swap(j);
    }
  }
}

ULONG enum_containers(ApplicationRecord& app, LPSTR list, ULONG* size) {
  std::string names;
  for (const auto& slot : app.containers) {
    if (!slot) continue;
    names += slot->name;
    names += '\0';
  }
  // The multi-string's final zero; with no container the list is that zero alone.
  return put_bytes(names.c_str(), names.size() + 1, list, size);
}

ULONG open_container(Ctx ctx, const std::shared_ptr<ApplicationRecord>& app, const char* name, HCONTAINER* out) {
  const ContainerRecord* found = nullptr;
  for (const auto& slot : app->containers) {
    if (slot && std::strcmp(slot->name, name) == 0) {
      found = slot.get();
      break;
    }
  }
  if (!found) {
    VLOG_ERROR(ctx.name(), "not find container");
    return SAR_INVALIDPARAMERR;
  }
  auto record = new_record<ContainerRecord>();
  record->app = app;
  record->type = app->type;
  set_name(*record, found->name);
  record->cryptoDevice = found->cryptoDevice;
  record->algorithm = found->algorithm;
  VOREL_KEYPAIR* dup = nullptr;
  if (found->signKeypair && VorelPKICryptoDupKeypair(found->signKeypair.get(), &dup) == VOREL_OK)
    record->signKeypair.reset(dup);
  dup = nullptr;
  if (found->encKeypair && VorelPKICryptoDupKeypair(found->encKeypair.get(), &dup) == VOREL_OK)
    record->encKeypair.reset(dup);
  return publish_record(record, out);
}

ULONG container_type(Ctx ctx, const ContainerRecord& container, ULONG* type) {
  switch (container.algorithm) {
    case VOREL_ALG_RSA:
      *type = 1;
      break;
    case VOREL_ALG_SM2:
      *type = 2;
      break;
    default:
      VLOG_ERROR(ctx.name(), "Container type error");
      return SAR_INVALIDPARAMERR;
  }
  _log("*pulContainerType", static_cast<long>(*type));
  return SAR_OK;
}

}  // namespace vorel

#include "token/device.h"

#include <algorithm>
#include <cstring>

#include "core/config.h"
#include "core/gate.h"
#include "skf/algorithms.h"

namespace vorel {

namespace {

void copy_text(char* field, std::size_t size, const char* text) {
  std::size_t n = strnlen(text, size - 1);
  std::memcpy(field, text, n);
  field[n] = '\0';
}

ULONG asymmetric_caps(VOREL_DEVICE* d) {
  const int sm3 = VOREL_HASH_SM3;
  ULONG caps = 0;
  if (VorelPKICryptoIsSupportedAlgorithm(d, VOREL_MECH_RSA_PKCS1, 1024, VOREL_USAGE_DECRYPT, nullptr) == 1 ||
      VorelPKICryptoIsSupportedAlgorithm(d, VOREL_MECH_RSA_RAW, 1024, VOREL_USAGE_DECRYPT, nullptr) == 1)
    caps |= SGD_RSA;
  if (VorelPKICryptoIsSupportedAlgorithm(d, VOREL_MECH_SM2_ENCRYPT, 256, VOREL_USAGE_DECRYPT, &sm3) == 1)
    caps |= SGD_SM2_3;
  if (VorelPKICryptoIsSupportedAlgorithm(d, VOREL_MECH_SM2_SM3_SIGN, 256, VOREL_USAGE_SIGN, nullptr) == 1)
    caps |= SGD_SM2_1;
  return caps;
}

}  // namespace

ULONG connect_emulated(Ctx ctx, int32_t type, const std::string& own, DEVHANDLE* out) {
  std::shared_ptr<DeviceRecord> record = new_device_record(type);
  if (!record) return SAR_FAIL;
  UniquePtr<VOREL_DEVICE> device;
  if (own == "?") {
    UniquePtr<VOREL_DEVICE_LIST> list(VorelPKICryptoGetAllDevices(type, VOREL_ENUM_TOKENS));
    if (!list) {
      VLOG_ERROR(ctx.name(), "VorelPKICryptoGetAllDevices fail");
      return SAR_FAIL;
    }
    device.reset(VorelPKICryptoGetDevice(list.get(), 0));
  } else {
    VOREL_DEVICE* found = nullptr;
    int rc = VorelPKICryptoFindDevice(type, own.c_str(), VOREL_ENUM_TOKENS, &found);
    device.reset(found);
    if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoFindDevice", rc);
  }
  if (!device) return SAR_DEVICE_REMOVED;
  char* raw = nullptr;
  int rc = VorelPKICryptoGetSerialNumber(device.get(), &raw);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoGetSerialNumber", rc);
  UniquePtr<char> serial(raw);
  copy_text(record->name, sizeof record->name, serial.get());
  record->cryptoDevice = std::move(device);
  if (auto config = GetVorelSKFConfig().find(type)) {
    if (config->hasDevAuthKey) {
      std::memcpy(record->auth.key, config->devAuthKey.data(), sizeof record->auth.key);
      record->auth.keySet = true;
    }
  }
  GetDeviceInfoFromVorelCrypto(*record);
  return publish_record(record, out);
}

ULONG device_state(int32_t type, const std::string& own, ULONG* state) {
  bool present;
  if (own == "?") {
    UniquePtr<VOREL_DEVICE_LIST> list(VorelPKICryptoGetAllDevices(type, VOREL_ENUM_TOKENS));
    if (!list) {
      VLOG_ERROR("SKF_GetDevState", "VorelPKICryptoGetAllDevices fail");
      return SAR_FAIL;
    }
    present = VorelPKICryptoGetDeviceCount(list.get()) > 0;
  } else {
    VOREL_DEVICE* found = nullptr;
    present = VorelPKICryptoFindDevice(type, own.c_str(), VOREL_ENUM_TOKENS, &found) == VOREL_OK && found;
    VorelPKICryptoFreeDevice(found);
  }
  *state = present ? DEV_PRESENT_STATE : DEV_ABSENT_STATE;
  _log("*pulDevState", static_cast<long>(*state));
  return SAR_OK;
}

void GetDeviceInfoFromVorelCrypto(DeviceRecord& device) {
  DEVINFO& info = device.devInfo;
  std::memset(&info, 0, sizeof info);
  info.Version.major = 1;
  info.Version.minor = 0;
  copy_text(info.SerialNumber, sizeof info.SerialNumber, device.name);
  if (device.auth.keySet) info.DevAuthAlgId = SGD_SMS4_ECB;
  VOREL_DEVICE* d = device.cryptoDevice.get();
  char* raw = nullptr;
  int rc = VorelPKICryptoGetLabel(d, &raw);
  if (rc != VOREL_OK) {
    VLOG_ERROR("GetDeviceInfoFromVorelCrypto", "VorelPKICryptoGetLabel fail, error : %d", rc);
    return;
  }
  UniquePtr<char> label(raw);
  copy_text(info.Label, sizeof info.Label, label.get());
  // SM4 is claimed without asking; every other cipher when the library offers it both ways.
  info.AlgSymCap = SGD_SMS4_ECB | SGD_SMS4_CBC;
  for (const SymmetricAlgorithm& a : kSymmetricAlgorithms) {
    if (a.sgd == SGD_SMS4_ECB || a.sgd == SGD_SMS4_CBC) continue;
    if (VorelPKICryptoIsSupportedAlgorithm(d, a.vorel, static_cast<int>(a.keyBits), VOREL_USAGE_ENCRYPT, nullptr) !=
            0 &&
        VorelPKICryptoIsSupportedAlgorithm(d, a.vorel, static_cast<int>(a.keyBits), VOREL_USAGE_DECRYPT, nullptr) != 0)
      info.AlgSymCap |= a.sgd;
  }
  info.AlgAsymCap = asymmetric_caps(d);
  info.AlgHashCap = SGD_SM3 | SGD_SHA1 | SGD_SHA256;
}

ULONG set_label(DeviceRecord& device, const char* label) {
  std::lock_guard<std::mutex> guard(device.infoMutex);
  if (strnlen(label, sizeof device.devInfo.Label) >= sizeof device.devInfo.Label) return SAR_NAMELENERR;
  std::memset(device.devInfo.Label, 0, sizeof device.devInfo.Label);  // no tail of a longer label stays
  copy_text(device.devInfo.Label, sizeof device.devInfo.Label, label);
  return SAR_OK;
}

namespace {
// The device's lock, held for the call; null, logged, once SKF_DisConnectDev dropped it.
std::shared_ptr<DeviceLock> lock_of(Ctx ctx, DeviceRecord& device) {
  std::shared_ptr<DeviceLock> lock;
  {
    std::lock_guard<std::mutex> guard(device.infoMutex);
    lock = device.lock;
  }
  if (!lock) VLOG_ERROR(ctx.name(), "the device has no lock");
  return lock;
}
}  // namespace

ULONG lock_device(Ctx ctx, DeviceRecord& device) {
  std::shared_ptr<DeviceLock> lock = lock_of(ctx, device);
  if (!lock) return SAR_FAIL;
  bool entered;
  {
    GateStepOut waiting;  // the holder's SKF_UnlockDev must get past a reload's closed gate
    entered = lock->enter();
  }
  if (!entered) {
    VLOG_ERROR(ctx.name(), "the device was disconnected while this call waited for its lock");
    return SAR_INVALIDHANDLEERR;
  }
  return SAR_OK;
}

ULONG unlock_device(Ctx ctx, DeviceRecord& device) {
  std::shared_ptr<DeviceLock> lock = lock_of(ctx, device);
  if (!lock) return SAR_FAIL;
  if (!lock->leave()) {
    VLOG_ERROR(ctx.name(), "the device is not locked by this thread");
    return SAR_FAIL;
  }
  return SAR_OK;
}

ULONG gen_random(Ctx ctx, DeviceRecord& device, BYTE* out, ULONG len) {
  int rc = VorelPKICryptoGenerateRandom(device.cryptoDevice.get(), len, out);
  if (rc != VOREL_OK) return ctx.crypto_failed("VorelPKICryptoGenerateRandom", rc);
  DeviceAuth& auth = device.auth;
  if (auth.keySet) {
    std::lock_guard<std::mutex> guard(auth.mutex);
    std::memset(auth.challenge, 0, sizeof auth.challenge);
    auth.challengeLen = std::min<ULONG>(len, sizeof auth.challenge);
    std::memcpy(auth.challenge, out, auth.challengeLen);
  }
  return SAR_OK;
}

ULONG dev_auth(Ctx ctx, DeviceRecord& device, const BYTE* data, ULONG len) {
  DeviceAuth& auth = device.auth;
  if (!auth.keySet) return SAR_NOT_EMULATED;
  uint8_t block[16];
  uint32_t drawn;
  {
    std::lock_guard<std::mutex> guard(auth.mutex);
    std::memcpy(block, auth.challenge, sizeof block);
    drawn = auth.challengeLen;
    // A challenge answers one attempt, right or wrong.
    vorel_cleanse(auth.challenge, sizeof auth.challenge);
    auth.challengeLen = 0;
  }
  if (drawn == 0) {
    VLOG_ERROR(ctx.name(), "no random bytes were drawn on this device to authenticate with");
    return SAR_FAIL;
  }
  UniquePtr<VOREL_CIPHER> cipher(
      VorelPKICryptoNewCipher(pseudo_device(), 1, VOREL_CIPHER_SM4_ECB, auth.key, sizeof auth.key, nullptr));
  unsigned char* raw = nullptr;
  std::size_t produced = 0;
  int rc =
      cipher ? VorelPKICryptoCipherUpdate(cipher.get(), block, sizeof block, &raw, &produced) : VorelPKIGetLastError();
  vorel_cleanse(block, sizeof block);
  UniquePtr<unsigned char> expected(raw);
  if (rc != VOREL_OK || produced != sizeof block) return ctx.crypto_failed("VorelPKICryptoCipherUpdate", rc);
  bool match = len == sizeof block && vorel_memequal(expected.get(), data, sizeof block);
  vorel_cleanse(expected.get(), produced);
  if (!match) {
    VLOG_ERROR(ctx.name(), "the authentication data is not the encrypted random of this device (%u bytes given)",
               static_cast<unsigned>(len));
    return SAR_FAIL;
  }
  return SAR_OK;
}

namespace {
// A token folder others may reach is said once per folder state, not on every listing.
void warn_about_store() {
  static std::mutex mutex;
  static std::string said;
  char* raw = nullptr;
  if (VorelPKICryptoGetStoreWarning(&raw) != VOREL_OK || !raw) return;
  UniquePtr<char> text(raw);
  std::lock_guard<std::mutex> guard(mutex);
  if (said == raw) return;
  said = raw;
  VLOG_WARN("GetDeviceNameFromVorelCrypto", "%s", raw);
}
}  // namespace

void GetDeviceNameFromVorelCrypto(int32_t type, NameList& names) {
  warn_about_store();
  UniquePtr<VOREL_DEVICE_LIST> list(VorelPKICryptoGetAllDevices(type, VOREL_ENUM_TOKENS | VOREL_ENUM_HARDWARE));
  if (!list) {
    VLOG_ERROR("GetDeviceNameFromVorelCrypto", "VorelPKICryptoGetAllDevices Failed. type = %d", type);
    return;
  }
  int count = VorelPKICryptoGetDeviceCount(list.get());
  for (int i = 0; i < count; ++i) {
    UniquePtr<VOREL_DEVICE> device(VorelPKICryptoGetDevice(list.get(), i));
    char* raw = nullptr;
    // A device whose serial number cannot be read is left out.
    if (!device || VorelPKICryptoGetSerialNumber(device.get(), &raw) != VOREL_OK) continue;
    UniquePtr<char> serial(raw);
    if (!names.add(type, serial.get(), std::strlen(serial.get()))) break;
  }
}

namespace {
VOREL_DEVICE* g_pseudo_device = nullptr;
}

VOREL_DEVICE* pseudo_device() { return g_pseudo_device; }

void pseudo_device_open() {
  if (g_pseudo_device) return;
  int rc = VorelPKICryptoGetPseudoDevice(&g_pseudo_device);
  if (rc != VOREL_OK) VLOG_ERROR("DllMain", "VorelPKICryptoGetPseudoDevice fail, error : %d", rc);
}

void pseudo_device_close() {
  VorelPKICryptoFreeDevice(g_pseudo_device);
  g_pseudo_device = nullptr;
}

}  // namespace vorel

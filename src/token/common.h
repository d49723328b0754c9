// What every emulated function works with: the records, the call's context, the size contract of
// output buffers and the crypto library. Nothing of the vendor route or of the export frame.
#pragma once

#include "core/buffers.h"
#include "core/context.h"
#include "core/records.h"
#include "vorel/vorel_crypto.h"
#include "vorel/vorel_ptr.h"
#include "vorel/vorel_util.h"

namespace vorel {

// The crypto library's process-wide pseudo device, held from load to unload: operations on the
// caller's keys, verification, random bytes for key export.
VOREL_DEVICE* pseudo_device();
void pseudo_device_open();
void pseudo_device_close();

}  // namespace vorel

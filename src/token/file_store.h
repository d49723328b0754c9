// The master file and the files' contents on a crypto-library token: data object 4361 and
// objects 0x1100 + slot.
#pragma once

#include <memory>

#include "skf/master_file.h"
#include "token/common.h"

namespace vorel {

// The store of a crypto-library device. It keeps the token locked, across processes, from its
// making to its end, so that an export's read-modify-write is one step. Null, with the answer in
// *rc, when the token cannot be locked.
std::unique_ptr<FileStore> crypto_file_store(Ctx ctx, VOREL_DEVICE* device, ULONG* rc);

}  // namespace vorel

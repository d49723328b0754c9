// The master file and the files' contents on a vendor token that keeps no file names of its own:
// SKF files "4361" and "4352".."4359" of the application.
#pragma once

#include <memory>

#include "skf/master_file.h"
#include "vendor/call.h"

namespace vorel {

// The store of a vendor application; the module must outlive it.
std::unique_ptr<FileStore> vendor_file_store(const VendorCall& v, HAPPLICATION app);

}  // namespace vorel

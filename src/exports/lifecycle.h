// Library start and stop, called by the platform's module entry point.
#pragma once

namespace vorel {

// Logs the version, takes the pseudo device, builds the vendor-module map.
void library_attach();
// Releases the pseudo device and every vendor module.
void library_detach();

extern const char* const kLibraryVersion;

}  // namespace vorel

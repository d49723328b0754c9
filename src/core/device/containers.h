// Containers: formed from a crypto-library device's key pairs when its application is opened,
// listed, opened and typed. Each function answers an SKF code and logs the cause of a failure.
#pragma once

#include "core/frame.h"

namespace vorel {

// Offers a key pair to the application's containers. A signing key pair (type 2) opens the next
// free container; any other joins the last container when its label is that container's name,
// or when algorithm, bit lengths and certificate (subject, validity) agree, the name then
// becoming "<signing label>#<label>". 1 when adopted (the container owns the key pair from then
// on), 0 when not (the caller frees it).
int addKeypairToContainer(ApplicationRecord& app, VOREL_KEYPAIR* keypair);
// Orders the application's containers: SM2 before RSA, more parts first, an RSA container with
// more parts before an SM2 one with fewer, and among equals the certificate that ends later first.
void SortContainers(ApplicationRecord& app);

// The names of the application's containers as a multi-string, with the size contract.
ULONG enum_containers(ApplicationRecord& app, LPSTR list, ULONG* size);
// A new container handle under the application for the container of exactly that name, holding
// its own references to the key pairs and no certificates.
ULONG open_container(const ExportCall& call, const std::shared_ptr<ApplicationRecord>& app, const char* name,
                     HCONTAINER* out);
// 1 for RSA, 2 for SM2 containers.
ULONG container_type(const ExportCall& call, const ContainerRecord& container, ULONG* type);
// On the vendor route: a container the vendor opened or created (entry), wrapped in a new handle
// under the application; the vendor's container is closed again if the handle cannot be made.
template <class Fn>
ULONG open_vendor_container(const ExportCall& call, const SkfDll& dll, Fn SkfDll::*entry,
                            const std::shared_ptr<ApplicationRecord>& app, LPSTR name, HCONTAINER* out) {
  auto record = new_record<ContainerRecord>();
  record->app = app;
  record->type = app->type;
  ULONG rc = call.vendor_call(dll, entry, app->vendorApplication, name, &record->vendorContainer);
  if (rc != SAR_OK) return rc;
  HCONTAINER vendorContainer = record->vendorContainer;
  return publish_record(record, out, [&dll, vendorContainer] {
    if (dll.SKF_CloseContainer) dll.SKF_CloseContainer(vendorContainer);
  });
}

}  // namespace vorel

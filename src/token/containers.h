// Containers: formed from a crypto-library device's key pairs when its application is opened,
// listed, opened and typed. Each function answers an SKF code and logs the cause of a failure.
#pragma once

#include "token/common.h"

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
// A new container handle for the application's container of exactly that name, holding
// its own references to the key pairs and no certificates.
ULONG open_container(Ctx ctx, const std::shared_ptr<ApplicationRecord>& app, const char* name, HCONTAINER* out);
// 1 for RSA, 2 for SM2 containers.
ULONG container_type(Ctx ctx, const ContainerRecord& container, ULONG* type);
}  // namespace vorel

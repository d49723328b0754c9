// Container and certificate exports.
#include "exports/frame.h"
#include "token/certificates.h"
#include "token/containers.h"

using namespace vorel;

namespace {

// A container the vendor opened or created (open), wrapped in a new handle that keeps the
// application; the vendor's container is closed again if the handle cannot be made.
template <class Open>
ULONG open_vendor_container(const VendorCall& v, Open SkfDll::*open, const std::shared_ptr<ApplicationRecord>& app,
                            LPSTR name, HCONTAINER* out) {
  auto record = new_record<ContainerRecord>();
  record->app = app;
  record->type = app->type;
  return open_wrapped(v, open, &SkfDll::SKF_CloseContainer, record, out, Whole(), app->vendorApplication, name);
}

// SKF_CreateContainer and SKF_OpenContainer: the vendor makes or opens the container; the
// emulation only opens (its containers come from the token's key pairs).
template <class Open>
ULONG container_export(const char* exportName, Open SkfDll::*vendorFunction, bool emulated, HAPPLICATION hApplication,
                       LPSTR szContainerName, HCONTAINER* phContainer) {
  return run_export(exportName, [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) &&
                             call.string("szContainerName", szContainerName) &&
                             call.pointer("phContainer", phContainer));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (auto dll = vendor_module(app->type))
      return call.finish(open_vendor_container(call.vendor(*dll), vendorFunction, app, szContainerName, phContainer));
    if (!emulated) return call.not_emulated();
    return call.finish(open_container(call.ctx(), app, szContainerName, phContainer));
  });
}

}  // namespace

extern "C" {

ULONG DEVAPI SKF_CreateContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer) {
  return container_export("SKF_CreateContainer", &SkfDll::SKF_CreateContainer, false, hApplication, szContainerName,
                          phContainer);
}

ULONG DEVAPI SKF_DeleteContainer(HAPPLICATION hApplication, LPSTR szContainerName) {
  return run_export("SKF_DeleteContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.string("szContainerName", szContainerName));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (auto dll = vendor_module(app->type))
      return call.forward(*dll, &SkfDll::SKF_DeleteContainer, app->vendorApplication, szContainerName);
    return call.not_emulated();
  });
}

ULONG DEVAPI SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER* phContainer) {
  return container_export("SKF_OpenContainer", &SkfDll::SKF_OpenContainer, true, hApplication, szContainerName,
                          phContainer);
}

ULONG DEVAPI SKF_CloseContainer(HCONTAINER hContainer) {
  return run_export("SKF_CloseContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    return call.finish(close_handle(call, static_cast<int32_t>(container->type), &SkfDll::SKF_CloseContainer,
                                    container->vendorContainer, hContainer));
  });
}

ULONG DEVAPI SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName, ULONG* pulSize) {
  return run_export("SKF_EnumContainer", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hApplication", hApplication) && call.pointer("pulSize", pulSize));
    auto app = find_record<ApplicationRecord>(hApplication);
    if (!app) return call.invalid_handle("hApplication");
    if (auto dll = vendor_module(app->type))
      return call.forward(*dll, &SkfDll::SKF_EnumContainer, app->vendorApplication, szContainerName, pulSize);
    return call.finish(enum_containers(*app, szContainerName, pulSize));
  });
}

ULONG DEVAPI SKF_GetContainerType(HCONTAINER hContainer, ULONG* pulContainerType) {
  return run_export("SKF_GetContainerType", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pulContainerType", pulContainerType));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(container->type))
      return call.forward(*dll, &SkfDll::SKF_GetContainerType, container->vendorContainer, pulContainerType);
    return call.finish(container_type(call, *container, pulContainerType));
  });
}

ULONG DEVAPI SKF_ImportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbCert, ULONG ulCertLen) {
  return run_export("SKF_ImportCertificate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call,
                   call.pointer("hContainer", hContainer) && call.bytes("pbCert", pbCert, "ulCertLen", ulCertLen));
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(container->type))
      return call.forward(*dll, &SkfDll::SKF_ImportCertificate, container->vendorContainer, bSignFlag, pbCert,
                          ulCertLen);
    return call.finish(import_certificate(call, *container, bSignFlag != 0, pbCert, ulCertLen));
  });
}

ULONG DEVAPI SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE* pbCert, ULONG* pulCertLen) {
  return run_export("SKF_ExportCertificate", [&](ExportCall& call) -> ULONG {
    VOREL_VALIDATE(call, call.pointer("hContainer", hContainer) && call.pointer("pulCertLen", pulCertLen));
    VLOG_DEBUG(call.name(), "bSignFlag : %d", bSignFlag);
    auto container = find_record<ContainerRecord>(hContainer);
    if (!container) return call.invalid_handle("hContainer");
    if (auto dll = vendor_module(container->type))
      return call.forward(*dll, &SkfDll::SKF_ExportCertificate, container->vendorContainer, bSignFlag, pbCert,
                          pulCertLen);
    return call.finish(export_certificate(call, *container, bSignFlag != 0, pbCert, pulCertLen));
  });
}

}  // extern "C"

// Presence of a vendor's USB token, by the vendor and product identifiers of its configuration.
#pragma once

#include <string>
#include <vector>

namespace vorel {

// True when a present USB device's identifier segment ("VID_096E&PID_0702") starts with one of
// the entries, compared without regard to case. An empty list matches nothing; an empty entry
// matches any USB device.
bool FindUsbByPidvids(const std::vector<std::string>& pidvids);

}  // namespace vorel

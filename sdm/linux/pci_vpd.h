// The PCI vital product data a function's "vpd" file gives: resource tags
// (identifier string, read-only and read-write keyword lists, end tag).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vtsdm::linuxfc {

// Bytes up to and including the end tag; the whole input when there is no
// well-formed end tag (a file cut short or padded is taken as it is).
size_t VpdLength(const std::vector<uint8_t> &vpd);

struct VpdFields {
    std::string identifier;                       // the product name string
    std::map<std::string, std::string> keywords;  // read-only keywords (PN, SN, EC, V1...)
};
// Reads the identifier string and the read-only keywords; stops quietly at
// the first malformed resource.
VpdFields ParseVpd(const std::vector<uint8_t> &vpd);

}  // namespace vtsdm::linuxfc

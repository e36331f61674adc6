// nvram_templates_gen DATADIR LIST: writes the NVRAM templates that ship in
// <install>/data, one per chip device ID and OEM, for the boards of the ID
// table (common/idtable.def) whose chip loads templates:
// DATADIR/templates_ISP<did>/<OEM><did>.dat.  Each is the default image of
// the NVRAM layout (sdm/nvram_map.*) for its board, written in template text;
// its subsystem IDs are the board's, so the library refuses it on any other
// board.  Where several boards share a chip and an OEM, the first one in the
// table owns the template.  LIST receives one line per template written:
// "<file> <SSVID> <SSDID> <board description>".
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

#include "config/nvram_oem.h"
#include "idtable.h"
#include "nvram_map.h"

namespace {

namespace ids = vt::ids;
namespace nvram = vtsdm::nvram;
using namespace vt::config;

bool MakeDir(const std::string &path) { return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST; }

bool WriteText(const std::string &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out.flush());
}

// The chip rows of a board: those whose label begins with its part number.
bool ChipOfBoard(const ids::ChipRow &chip, const ids::BoardRow &board) {
    const std::string_view label = chip.label, part = board.isp;
    return label.size() > part.size() && label.substr(0, part.size()) == part && label[part.size()] == ' ';
}

std::string TemplateText(const ids::BoardRow &board, uint16_t deviceId, uint32_t chipType, uint32_t oem) {
    nvram::Identity identity{};
    identity.ssvid = board.ssvid;
    identity.ssdid = board.ssdid;
    const size_t size = TemplateImageSize(chipType);
    std::vector<uint8_t> image = nvram::DefaultImage(size, identity);
    nvram::SetValue(image.data(), size, nvram::kVendorId, ids::kMakerVendorId);
    nvram::SetValue(image.data(), size, nvram::kDeviceId, deviceId);
    nvram::ComputeChecksum(image.data(), size);
    char head[256];
    std::snprintf(head, sizeof head, "; %s (SSVID 0x%04X SSDID 0x%04X), OEM %s, device ID 0x%04X\n", board.desc,
                  board.ssvid, board.ssdid, kOemNames[oem], deviceId);
    return head + nvram::WriteTemplate(size, image.data());
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: nvram_templates_gen DATADIR LIST\n");
        return 2;
    }
    const std::string dataDir = argv[1];
    std::set<std::string> written;
    std::string list;
    for (const ids::BoardRow &board : ids::BoardRows()) {
        const uint32_t oem = OemForSubsystemVendor(board.ssvid);
        if (oem >= kOemCount) continue;
        for (const ids::ChipRow &chip : ids::ChipRows()) {
            if (chip.ispType == ids::kNoIsp || !ChipOfBoard(chip, board) || !OemAllowedForChip(chip.ispType, oem))
                continue;
            std::set<uint16_t> deviceIds = {chip.deviceId, static_cast<uint16_t>(chip.deviceId | chip.ignoreMask)};
            for (uint16_t did : deviceIds) {
                const std::string part = TemplateFilePart(did, oem);
                if (!written.insert(part).second) continue;
                const std::string path = dataDir + "/templates_" + part;
                if (!MakeDir(dataDir) || !MakeDir(path.substr(0, path.rfind('/'))) ||
                    !WriteText(path, TemplateText(board, did, chip.ispType, oem))) {
                    std::fprintf(stderr, "nvram_templates_gen: cannot write %s: %s\n", path.c_str(),
                                 std::strerror(errno));
                    return 1;
                }
                char line[256];
                std::snprintf(line, sizeof line, "templates_%s 0x%04X 0x%04X %s\n", part.c_str(), board.ssvid,
                              board.ssdid, board.desc);
                list += line;
            }
        }
    }
    if (!WriteText(argv[2], list)) {
        std::fprintf(stderr, "nvram_templates_gen: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}

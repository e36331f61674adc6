// Writes the starting corpora of the flash fuzz targets from the image
// builder: valid images of every family and format and each of the
// builder's deliberate faults.  Usage: fuzz_seeds <corpus directory>; the
// files go to its ilt/, romchain/, fwheader/ and pldm/ subdirectories.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "imagebuild.h"

namespace img = vtsdm::image;
using Bytes = std::vector<uint8_t>;
using img::ImageFamily;

namespace {

std::filesystem::path gRoot;

void Save(const std::string &dir, const std::string &name, const Bytes &bytes) {
    const std::filesystem::path d = gRoot / dir;
    std::filesystem::create_directories(d);
    std::ofstream out(d / name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

// The ilt target reads the adapter facts from the last four bytes: subsystem
// ID (high byte, low byte), chip revision (its high nibble is the card
// type), device index with the subsystem-vendor wildcard bit.
Bytes WithFacts(Bytes mbi, uint16_t ssdid, uint8_t revision, uint8_t device) {
    const size_t at = mbi.size();
    mbi.resize(at + 4);
    mbi[at] = uint8_t(ssdid >> 8);
    mbi[at + 1] = uint8_t(ssdid);
    mbi[at + 2] = revision;
    mbi[at + 3] = device;
    return mbi;
}

// The fwheader target's input: region type, entry version, attribute selector.
Bytes Component(uint16_t type, img::Version v, uint8_t attribute, const Bytes &payload) {
    Bytes b(6 + payload.size());
    const uint8_t prefix[6] = {uint8_t(type), uint8_t(type >> 8), v.major, v.minor, v.subminor, attribute};
    std::copy(std::begin(prefix), std::end(prefix), b.begin());
    std::copy(payload.begin(), payload.end(), b.begin() + 6);
    return b;
}

void IltSeeds() {
    struct Family {
        const char *name;
        ImageFamily family;
        img::CardEntry card;
        uint8_t revision, device;
    };
    const Family families[] = {
        {"kite", ImageFamily::kKite, {0x1077, 0x7C50, 0x1077, 0x0C60}, 0x12, 0},
        {"wren", ImageFamily::kWren, {0x1077, 0x6A10, 0x1077, 0x0A16}, 0x11, 1},
        {"other_fc", ImageFamily::kOtherFc, {0x1077, 0x6421, 0x1077, 0x0312}, 0x11, 2},
        {"orla", ImageFamily::kOrla, {0x1077, 0x6421, 0x1077, 0x0312}, 0x58, 2},
        {"tern", ImageFamily::kTern, {0x1077, 0x6311, 0x1077, 0x0320}, 0x54, 3},
        {"tove", ImageFamily::kTove, {0x1077, 0x7180, 0x1077, 0x0330}, 0x58, 4},
    };
    using Fault = std::function<void(Bytes &)>;
    const std::pair<const char *, Fault> faults[] = {
        {"signature", [](Bytes &b) { img::mutate::Signature(b, "VFIX"); }},
        {"version6", [](Bytes &b) { img::mutate::TableVersion(b, 6); }},
        {"checksum", [](Bytes &b) { img::mutate::TableChecksum(b); }},
        {"regions300", [](Bytes &b) { img::mutate::RegionCount(b, 300); }},
        {"lists9", [](Bytes &b) { img::mutate::CardListCount(b, 9); }},
        {"entries2000", [](Bytes &b) { img::mutate::CardListEntries(b, 0, 2000); }},
        {"wrong_card",
         [](Bytes &b) {
             img::mutate::Card(b, 1, 0, {0x1077, 0x2261, 0x1077, 0x0100});
         }},
        {"chip_rev", [](Bytes &b) { img::mutate::RegionChipRevision(b, 0, 0x77); }},
        {"broken_rom",
         [](Bytes &b) {
             img::mutate::BreakRomChain(img::mutate::ComponentBytes(b, 1), img::mutate::RomBreak::kNoLastImage, 2);
         }},
        {"truncated", [](Bytes &b) { img::mutate::Truncate(b, 700); }},
    };
    for (const Family &f : families) {
        const Bytes good = img::BuildMultiImage(img::SampleImage(f.family, f.card, 128));
        Save("ilt", f.name, WithFacts(good, f.card.subSystemId, f.revision, f.device));
        // The faults on one FC and one NIC family.
        if (f.family != ImageFamily::kKite && f.family != ImageFamily::kOrla) continue;
        for (const auto &[name, fault] : faults) {
            Bytes b = good;
            fault(b);
            Save("ilt", std::string(f.name) + "_" + name, WithFacts(b, f.card.subSystemId, f.revision, f.device));
        }
    }
    img::MultiImageRecipe empty;
    Save("ilt", "empty_table", img::BuildMultiImage(empty));
    Save("ilt", "locator", img::BuildFltLocator(0x3F1000));
}

void RomSeeds() {
    auto one = [](uint8_t type, img::Version v, uint16_t device = 0) {
        return img::RomImageRecipe{type, v, 512, 0x1077, device, "", {}};
    };
    Save("romchain", "bios_fcode_efi", img::BuildRomChain({one(0, {3, 67}), one(1, {4, 21}), one(3, {7, 34})}));
    Save("romchain", "pxe", img::BuildRomChain({one(0, {2, 10}), one(2, {2, 11})}));
    Save("romchain", "vpd_then_driver", img::BuildRomChain({one(0, {1, 0}, 1), one(0, {3, 1}, 4)}));
    Bytes standard = img::BuildRomChain({{0, {3, 67, 0}, 1024, 0x1077, 0x7C50, "2910", {}}});
    Save("romchain", "standard_2910", standard);
    for (uint8_t code : {0, 3, 4, 5, 6}) {
        const img::RomImageRecipe common{0, {3, 70, 0}, 1024, 0x1077, 0, "", code};
        Save("romchain", "common_code" + std::to_string(code), img::BuildRomChain({common, one(3, {7, 40})}));
    }
    using img::mutate::RomBreak;
    const std::pair<const char *, RomBreak> breaks[] = {
        {"no_last", RomBreak::kNoLastImage},          {"rom_signature", RomBreak::kRomSignature},
        {"data_signature", RomBreak::kDataSignature}, {"checksum", RomBreak::kChecksum},
        {"not_driver", RomBreak::kNotADriver},        {"code_type", RomBreak::kCodeType}};
    for (const auto &[name, how] : breaks) {
        Bytes b = img::BuildRomChain({one(0, {3, 67}), one(1, {4, 21}), one(3, {7, 34})});
        img::mutate::BreakRomChain(b, how, how == RomBreak::kNoLastImage ? 2 : 1);
        Save("romchain", std::string("broken_") + name, b);
    }
    standard[2] = 0x80;  // a negative size
    Save("romchain", "negative_size", standard);
}

void ComponentSeeds() {
    const img::Version v{9, 12, 1};
    Save("fwheader", "risc_kite", Component(0x01, v, 2, img::BuildRiscFirmware(v, 32, 512)));
    Save("fwheader", "risc_fcoe", Component(0xA4, v, 1, img::BuildRiscFirmware(v, 16, 512)));
    Save("fwheader", "edc", Component(0x45, {3, 1, 4}, 0, img::BuildEdcFirmware({3, 1, 4}, 128)));
    Save("fwheader", "mpi_nic", Component(0x40, {1, 5, 2}, 0, img::BuildNicMpiFirmware({1, 5, 2}, 128)));
    Save("fwheader", "mpi_config", Component(0x41, {}, 0, img::BuildMpiConfig(1536)));
    Save("fwheader", "crbinit",
         Component(0x70, {1, 1, 1}, 0, img::BuildTrailerComponent(img::kCrbinitSignature, {1, 1, 1}, 256)));
    Save("fwheader", "pegtune",
         Component(0x73, {1, 1, 3}, 0, img::BuildTrailerComponent(img::kPegtuneSignature, {1, 1, 3}, 256)));
    Save("fwheader", "bootloader",
         Component(0x72, {1, 1, 2}, 0, img::BuildTrailerComponent(img::kBootloaderSignature, {1, 1, 2}, 256)));
    Save("fwheader", "nic_fw_tern", Component(0x74, {5, 4, 3}, 0, img::BuildNicFirmware({5, 4, 3}, 256)));
    Save("fwheader", "nic_fw", Component(0x97, {5, 4, 3}, 1, img::BuildNicFirmware({5, 4, 3}, 256)));
    Save("fwheader", "mpi_fc", Component(0xD3, {2, 1, 9}, 0, img::BuildFcMpiFirmware({2, 1, 9}, 64)));
    Save("fwheader", "pep", Component(0xD1, {1, 2, 3}, 0, img::BuildPepComponent({1, 2, 3, 4}, 128)));
    Save("fwheader", "pep_board", Component(0xCF, {5, 6, 7}, 0, img::BuildPepBoardConfig({5, 6, 7, 8}, 16)));
    Save("fwheader", "signature", Component(0x9E, {1, 0, 7}, 0, img::BuildSignatureRegion({1, 0, 7}, 512)));
    Save("fwheader", "boot",
         Component(0x07, {3, 67, 0}, 0, img::BuildRomChain({{0, {3, 67, 0}, 512, 0x1077, 0, "", {}}})));
}

void PldmSeeds() {
    img::MultiImageRecipe m;
    m.components = {{0x01, {9, 12, 1}, 0, 0, img::BuildRiscFirmware({9, 12, 1}, 32, 256)}};
    m.cardLists = {{0, {{0x1077, 0x7C50, 0x1077, 0x0C60}}}};
    const Bytes mbi = img::BuildMultiImage(m);
    for (uint8_t rev = 1; rev <= 4; ++rev) {
        img::PldmRecipe recipe;
        recipe.formatRevision = rev;
        recipe.deviceRecords = rev % 3;
        recipe.components = 1 + rev % 2;
        Save("pldm", "revision" + std::to_string(rev), img::BuildPldmPackage(mbi, recipe));
    }
    Bytes broken = img::BuildPldmPackage(mbi);
    broken[36] ^= 1;
    Save("pldm", "bad_crc", broken);
    Save("pldm", "bare", mbi);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus directory>\n", argv[0]);
        return 2;
    }
    gRoot = argv[1];
    IltSeeds();
    RomSeeds();
    ComponentSeeds();
    PldmSeeds();
    return 0;
}

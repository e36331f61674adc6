// The flash update command (-b hba FILE [-y]): validates an image file
// against the card of each selected port, shows per component the version
// in the card's flash and the one the file brings, asks before writing
// (unless -y), writes each card's regions in one step and reports that the
// card runs the new image after a reboot.
//
// Every card is planned before anything is shown or written, so a file that
// does not fit one of them writes nothing at all.  The planner and the
// writer are the flash layer's exported vtfu calls; the VPD and NVRAM
// regions are never part of a plan.
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/reports.h"
#include "cli/xml.h"
#include "core/core.h"
#include "flash/flash_update.h"
#include "oss/oss_signal.h"

namespace vt::cli {
namespace {

struct FlashArgs {
    std::string file;
    bool noPrompt = false;  // -y: write without asking
};

bool IsYesSwitch(const char *arg) { return strcasecmp(arg, "-y") == 0 || strcasecmp(arg, "/y") == 0; }

Result ParseFlashArgs(const TarnCommand &cmd, FlashArgs &args) {
    for (uint32_t i = 0; i < cmd.SubArgCount; ++i) {
        const char *a = cmd.SubArgs[i];
        if (IsYesSwitch(a)) {
            args.noPrompt = true;
        } else if (args.file.empty()) {
            args.file = a;
        } else {
            return {TARN_STATUS_UNKNOWN_PARAM,
                    std::string("Error: Unexpected argument '") + a + "' for option " + cmd.Option + "!"};
        }
    }
    if (args.file.empty())
        return {TARN_STATUS_BAD_VALUE, std::string("Error: Option ") + cmd.Option + " needs an image file name!"};
    return {};
}

// The adapter tree of the listed ports, built for this command only.
class CardTree {
public:
    CardTree() : list_(core_CreateAdapterEntryList()) {
        if (list_ != nullptr) BuildAdapterInfoForFC(list_);
    }
    ~CardTree() { core_FreeAdapterList(list_); }
    CardTree(const CardTree &) = delete;
    CardTree &operator=(const CardTree &) = delete;

    const AdapterEntry *CardOf(const SDMDevice &port) const {
        return list_ != nullptr ? FindAdapterEntryUsingSerialNo(list_, GetAdapterSerialNo(&port)) : nullptr;
    }

private:
    AdapterEntryList *list_;
};

struct PlanDeleter {
    void operator()(VTFU_UpdatePlan *plan) const { vtfuFreeFlashUpdatePlan(plan); }
};
using PlanPtr = std::unique_ptr<VTFU_UpdatePlan, PlanDeleter>;

// One card to update, named by the first selected port on it.
struct CardUpdate {
    const SDMDevice *port;
    const AdapterEntry *card;
    PlanPtr plan;
};

std::string HbaName(const SDMDevice &port) {
    return "HBA " + std::to_string(port.Instance) + " (" + ModelName(port) + ")";
}

// The cards of the selected ports, once each.  A virtual port named on its
// own is refused: the flash belongs to the physical card.
Result ChooseCards(const TarnCommand &cmd, const CardTree &tree, std::vector<CardUpdate> &cards) {
    Result result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    for (const SDMDevice *d : ports) {
        if (isVirtualPortHBA(d)) {
            if (cmd.Selection != TARN_SELECT_ALL)
                return {TARN_STATUS_NOT_SUPPORTED,
                        "Error: " + HbaName(*d) + " is a virtual port; select a physical port of its card."};
            continue;
        }
        const AdapterEntry *card = tree.CardOf(*d);
        if (card == nullptr)
            return {static_cast<int32_t>(VTAPI_OPTION_ROM_UPDATE_FAILED),
                    "Error: The card of " + HbaName(*d) + " is not in the adapter list!"};
        // A backend that cannot reach the flash (the Linux driver's) says
        // so before any file is read.
        SDOptionRomLayout probe{};
        if (SDGetOptionRomLayout(d->DeviceHandle, 0, &probe, sizeof probe) == SDERR_NOT_SUPPORTED)
            return {TARN_STATUS_NOT_SUPPORTED, "Error: Flash update of " + HbaName(*d) +
                                                   " is not supported: " + SDGetErrorString(SDERR_NOT_SUPPORTED) + "."};
        bool seen = false;
        for (const CardUpdate &c : cards) seen = seen || c.card == card;
        if (!seen) cards.push_back({d, card, nullptr});
    }
    if (cards.empty()) return {TARN_STATUS_NO_ADAPTER, "Error: No physical HBA port selected!"};
    return {};
}

std::string Hex(uint32_t n) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%02X", n);
    return text;
}

Value VersionValue(const char *text) { return text[0] != '\0' ? Value::Text(text) : Value::None(); }

// The component list of a plan in XML (the same in both formats).
void XmlFlashPlan(const VTFU_UpdatePlan &plan, const std::string &file) {
    XmlLine("\t<FlashUpdate>");
    XML_PrintElement("\t\t", "ImageFile", file.c_str());
    XML_PrintElement("\t\t", "ImageType", plan.BootFile ? "Boot code" : "Multi-image");
    if (plan.ImageVersion[0] != '\0') XML_PrintElement("\t\t", "ImageVersion", plan.ImageVersion);
    for (uint32_t i = 0; i < plan.Count; ++i) {
        const VTFU_UpdateComponent &c = plan.Components[i];
        XmlLine("\t\t<Component>");
        XML_PrintElement("\t\t\t", "Region", Hex(c.Region).c_str());
        XML_PrintElement("\t\t\t", "Name", c.Name);
        XML_PrintElement("\t\t\t", "CurrentVersion", c.Current);
        XML_PrintElement("\t\t\t", "NewVersion", c.New);
        XML_PrintElement("\t\t\t", "Size", std::to_string(c.Size).c_str());
        XmlLine("\t\t</Component>");
    }
    XmlLine("\t</FlashUpdate>");
}

void ShowPlan(Sink &sink, const CardUpdate &u, const std::string &file) {
    static const Table kComponents = {
        {"region", "Region", 6, 0},
        {"name", "Component", 26, 2, false, 26},
        {"current_version", "Current", 13, 2, false, 13},
        {"new_version", "New", 13, 2, false, 13},
        {"size_bytes", "Bytes", 0, 2},
    };
    const VTFU_UpdatePlan &plan = *u.plan;
    PortScope port(sink, *u.port, PortStyle::Heading);
    sink.Field("serial", "Serial Number", Value::Text(u.card->SerialNumber));
    sink.Field("image_type", "Image Type", Value::Text(plan.BootFile ? "Boot code" : "Multi-image"));
    if (plan.ImageVersion[0] != '\0') sink.Field("image_version", "Image Version", Value::Text(plan.ImageVersion));
    sink.Blank();
    sink.Columns(kComponents);
    sink.Rule('-');
    {
        ListScope list(sink, "components");
        for (uint32_t i = 0; i < plan.Count; ++i) {
            const VTFU_UpdateComponent &c = plan.Components[i];
            ItemScope item(sink);
            sink.Row(kComponents, {Value::Number(c.Region, Hex(c.Region)), Value::Text(c.Name), VersionValue(c.Current),
                                   VersionValue(c.New), Value::Number(c.Size)});
        }
    }
    sink.Xml([&plan, &file] { XmlFlashPlan(plan, file); });
}

// Asks on standard error (the report on standard output stays a clean
// document in every form) and reads the answer from standard input; only
// "y" or "yes" goes on, and the end of the input cancels.
bool Confirmed(const std::vector<CardUpdate> &cards) {
    std::fflush(stdout);
    std::string names;
    for (const CardUpdate &u : cards) names += (names.empty() ? "" : ", ") + HbaName(*u.port);
    std::fprintf(stderr, "Update the flash of %s? (y/n): ", names.c_str());
    std::fflush(stderr);
    char answer[32] = "";
    bool answered;
    {
        const vt::oss::InputWait waiting;  // a termination may clean up meanwhile
        answered = std::fgets(answer, sizeof answer, stdin) != nullptr;
    }
    if (!answered) {
        std::fputc('\n', stderr);
        return false;
    }
    std::string word(answer);
    while (!word.empty() && (word.back() == '\n' || word.back() == '\r' || word.back() == ' ')) word.pop_back();
    return strcasecmp(word.c_str(), "y") == 0 || strcasecmp(word.c_str(), "yes") == 0;
}

}  // namespace

Result FlashUpdateReport(const TarnCommand &cmd, Sink &sink) {
    FlashArgs args;
    if (Result r = ParseFlashArgs(cmd, args); r.status != 0) return r;
    // The path is the user's own and is used as given.
    if (access(args.file.c_str(), R_OK) != 0)
        return {static_cast<int32_t>(VTAPI_FILE_NOT_FOUND), "Unable to open file '" + args.file + "' for reading!"};

    const CardTree tree;
    std::vector<CardUpdate> cards;
    if (Result r = ChooseCards(cmd, tree, cards); r.status != 0) return r;
    for (CardUpdate &u : cards) {
        VTFU_UpdatePlan *plan = nullptr;
        const uint32_t rc = vtfuPlanFlashUpdate(u.card, args.file.c_str(), &plan);
        u.plan.reset(plan);
        if (rc != VTAPI_SUCCESS) return {static_cast<int32_t>(rc), "Unable to read file '" + args.file + "'!"};
        if (plan->Status != VTAPI_SUCCESS) return {static_cast<int32_t>(plan->Status), plan->Message};
    }

    sink.Open();
    sink.Title("Flash Update");
    sink.Field("image_file", "Image File", Value::Text(args.file));
    sink.Blank();
    {
        ListScope list(sink, "hbas");
        for (const CardUpdate &u : cards) ShowPlan(sink, u, args.file);
    }
    sink.Blank();
    if (!args.noPrompt && !Confirmed(cards))
        return {TARN_STATUS_NOT_PERMITTED, "Flash update cancelled; nothing was written."};

    // A card written before another one fails still needs its reboot: the
    // failure's document says so.
    ListScope results(sink, "results");
    for (const CardUpdate &u : cards) {
        const uint32_t rc = vtfuWriteFlashUpdate(u.plan.get());
        if (rc != VTAPI_REBOOT_REQUIRED)
            return {static_cast<int32_t>(VTAPI_OPTION_ROM_UPDATE_FAILED),
                    "Flash update of " + HbaName(*u.port) + " failed: " +
                        (rc < 0x100 ? "status " + std::to_string(rc) : std::string(SDGetErrorString(rc))) +
                        ". Its flash is unchanged."};
        ItemScope item(sink);
        Value hba = Value::Text(HbaName(*u.port)).WithParts({{"instance", Value::Number(u.port->Instance)}});
        sink.Line({{"instance", "", std::move(hba)},
                   {"serial", ", serial ", Value::Text(u.card->SerialNumber)},
                   {nullptr, ": flash updated; reboot required.", Value::Blank()}});
        sink.Reboot();
    }
    sink.Note("Reboot the host (or restart the card) to run the new image.");
    return {};
}

}  // namespace vt::cli

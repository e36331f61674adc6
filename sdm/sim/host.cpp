// Host file loader: JSON -> Host, with every field checked and every error
// naming the file and the field.
#include "host.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "backend.h"
#include "idtable.h"
#include "json_teardown.h"

namespace vtsdm {

using nlohmann::json;

std::optional<Lun> Target::findLun(uint16_t number) const {
    if (lunOrder.size() == luns.size()) {
        auto it = std::lower_bound(lunOrder.begin(), lunOrder.end(), number,
                                   [&](uint32_t i, uint16_t n) { return luns[i].number < n; });
        if (it != lunOrder.end() && luns[*it].number == number) return luns[*it];
    } else {
        for (const Lun &l : luns)
            if (l.number == number) return l;
    }
    if (range && number >= range->start && uint32_t(number - range->start) < range->count) {
        Lun l = range->model;
        l.number = number;
        l.flat = range->model.flat || number > 255;
        return l;
    }
    return std::nullopt;
}

namespace {

// Fields of one or two hex digits separated by colons, as in "01:0a:00";
// nothing else (no sign, no blanks, no "0x").
std::optional<std::vector<uint8_t>> HexFields(const std::string &s, size_t count) {
    std::vector<uint8_t> out;
    size_t i = 0;
    while (out.size() < count) {
        unsigned v = 0;
        size_t digits = 0;
        for (; i < s.size() && digits < 3 && isxdigit(static_cast<unsigned char>(s[i])); ++i, ++digits)
            v = v * 16 + unsigned(isdigit(static_cast<unsigned char>(s[i])) ? s[i] - '0' : (s[i] | 0x20) - 'a' + 10);
        if (digits == 0 || digits > 2) return std::nullopt;
        out.push_back(uint8_t(v));
        if (out.size() < count) {
            if (i >= s.size() || s[i] != ':') return std::nullopt;
            ++i;
        }
    }
    if (i != s.size()) return std::nullopt;
    return out;
}

// Walks a JSON object, remembering where it is for error messages.
class Node {
public:
    Node(const json &j, std::string where, const std::string &file) : j_(j), where_(std::move(where)), file_(file) {}

    [[noreturn]] void fail(const std::string &what) const {
        throw HostError("host file " + file_ + ": " + where_ + ": " + what);
    }
    const json &raw() const { return j_; }
    const std::string &where() const { return where_; }

    void expectObject(std::initializer_list<const char *> allowed) const {
        if (!j_.is_object()) fail("expected an object");
        std::set<std::string> ok(allowed.begin(), allowed.end());
        for (auto it = j_.begin(); it != j_.end(); ++it)
            if (!ok.count(it.key())) child(it.key()).fail("unknown field");
    }
    bool has(const char *key) const { return j_.contains(key) && !j_.at(key).is_null(); }
    Node child(const std::string &key) const {
        static const json null;
        return Node(j_.contains(key) ? j_.at(key) : null, where_ + "." + key, file_);
    }
    std::vector<Node> array(const char *key) const {
        std::vector<Node> out;
        if (!has(key)) return out;
        Node a = child(key);
        if (!a.j_.is_array()) a.fail("expected an array");
        for (size_t i = 0; i < a.j_.size(); ++i)
            out.emplace_back(a.j_[i], a.where_ + "[" + std::to_string(i) + "]", file_);
        return out;
    }

    std::string str(const char *key, std::string def = {}, size_t maxLen = 255) const {
        if (!has(key)) return def;
        Node c = child(key);
        if (!c.j_.is_string()) c.fail("expected a string");
        std::string s = c.j_.get<std::string>();
        if (s.size() > maxLen) c.fail("longer than " + std::to_string(maxLen) + " characters");
        return s;
    }
    std::string requiredStr(const char *key, size_t maxLen = 255) const {
        if (!has(key)) child(key).fail("missing");
        std::string s = str(key, {}, maxLen);
        if (s.empty()) child(key).fail("must not be empty");
        return s;
    }
    // A number, or a string in decimal or 0x-hexadecimal.
    uint64_t num(const char *key, uint64_t def, uint64_t max) const {
        if (!has(key)) return def;
        return child(key).asNum(max);
    }
    uint64_t asNum(uint64_t max) const {
        uint64_t v = 0;
        if (j_.is_number_unsigned()) {
            v = j_.get<uint64_t>();
        } else if (j_.is_number_integer()) {
            if (j_.get<int64_t>() < 0) fail("must not be negative");
            v = uint64_t(j_.get<int64_t>());
        } else if (j_.is_string()) {
            const std::string s = j_.get<std::string>();
            size_t used = 0;
            try {
                v = std::stoull(s, &used, 0);
            } catch (const std::exception &) {
                fail("expected a number, got \"" + s + "\"");
            }
            if (used != s.size() || s.empty() || s[0] == '-') fail("expected a number, got \"" + s + "\"");
        } else {
            fail("expected a number");
        }
        if (v > max) fail("value " + std::to_string(v) + " is above " + std::to_string(max));
        return v;
    }
    bool flag(const char *key, bool def) const {
        if (!has(key)) return def;
        Node c = child(key);
        if (!c.j_.is_boolean()) c.fail("expected true or false");
        return c.j_.get<bool>();
    }
    uint64_t wwn(const char *key, bool required) const {
        if (!has(key)) {
            if (required) child(key).fail("missing");
            return 0;
        }
        Node c = child(key);
        if (!c.j_.is_string()) c.fail("expected a WWN text like \"21:00:00:24:ff:00:00:01\"");
        auto v = ParseWwn(c.j_.get<std::string>());
        if (!v)
            c.fail("expected a WWN of 8 hex bytes like \"21:00:00:24:ff:00:00:01\", got \"" + c.j_.get<std::string>() +
                   "\"");
        return *v;
    }
    uint32_t portId(const char *key) const {
        if (!has(key)) return 0;
        Node c = child(key);
        auto f = HexFields(c.j_.is_string() ? c.j_.get<std::string>() : std::string(), 3);
        if (!f) c.fail("expected a port ID like \"01:0a:00\"");
        return (uint32_t((*f)[0]) << 16) | (uint32_t((*f)[1]) << 8) | (*f)[2];
    }

private:
    const json &j_;
    std::string where_;
    const std::string &file_;
};

uint8_t PeripheralType(const Node &n, const char *key, uint8_t def) {
    if (!n.has(key)) return def;
    Node c = n.child(key);
    if (c.raw().is_string()) {
        static const std::map<std::string, uint8_t> names = {
            {"disk", 0x00},       {"tape", 0x01},      {"printer", 0x02}, {"processor", 0x03},
            {"worm", 0x04},       {"cdrom", 0x05},     {"optical", 0x07}, {"changer", 0x08},
            {"controller", 0x0C}, {"enclosure", 0x0D}, {"unknown", 0x1F}};
        auto it = names.find(c.raw().get<std::string>());
        if (it == names.end())
            c.fail("unknown device type \"" + c.raw().get<std::string>() +
                   "\" (disk, tape, changer, controller, enclosure, cdrom, processor or a number)");
        return it->second;
    }
    return uint8_t(c.asNum(0x1F));
}

InquiryData ParseInquiry(const Node &n, InquiryData d) {
    d.qualifier = uint8_t(n.num("qualifier", d.qualifier, 7));
    d.type = PeripheralType(n, "type", d.type);
    d.vendor = n.str("vendor", d.vendor, 8);
    d.product = n.str("product", d.product, 16);
    d.revision = n.str("revision", d.revision, 4);
    return d;
}

Lun ParseLun(const Node &n, const Lun &base, bool requireNumber) {
    n.expectObject({"lun", "addressing", "qualifier", "type", "vendor", "product", "revision", "blocks", "block_size",
                    "passive", "inquiry_fails", "os_name", "count", "start"});
    Lun l = base;
    if (requireNumber) {
        if (!n.has("lun")) n.child("lun").fail("missing");
        l.number = uint16_t(n.num("lun", 0, 0x3FFF));
    }
    if (n.has("addressing")) {
        std::string a = n.str("addressing");
        if (a == "flat") l.flat = true;
        else if (a == "peripheral") l.flat = false;
        else n.child("addressing").fail("expected \"peripheral\" or \"flat\"");
    }
    if (!l.flat && l.number > 255) l.flat = true;  // only flat space reaches past 255
    l.inquiry = ParseInquiry(n, l.inquiry);
    if (l.inquiry.type == 0x01 && !n.has("product")) l.inquiry.product = "SIM TAPE";
    l.blocks = n.num("blocks", l.blocks, (uint64_t(1) << 62));
    l.blockSize = uint32_t(n.num("block_size", l.blockSize, 1u << 20));
    if (l.blockSize == 0) n.child("block_size").fail("must not be 0");
    l.passive = n.flag("passive", l.passive);
    l.inquiryFails = n.flag("inquiry_fails", l.inquiryFails);
    l.osName = n.str("os_name", l.osName, 255);
    return l;
}

void ParseLuns(const Node &n, Target &t) {
    const std::vector<Node> nodes = n.array("luns");
    t.luns.reserve(nodes.size());
    for (const Node &ln : nodes) t.luns.push_back(ParseLun(ln, Lun{}, true));
    if (n.has("lun_range")) {
        Node r = n.child("lun_range");
        auto range = std::make_shared<LunRange>();
        range->model = ParseLun(r, Lun{}, false);
        range->start = uint16_t(r.num("start", 0, 0x3FFF));
        range->count = uint32_t(r.num("count", 0, 0x4000));
        if (range->count == 0) r.child("count").fail("must be at least 1");
        if (uint32_t(range->start) + range->count > 0x4000) r.fail("LUN numbers run past 16383");
        t.range = std::move(range);
    }
    // The LUNs by number: lookups search it, and a LUN listed twice sits
    // next to its twin.
    t.lunOrder.resize(t.luns.size());
    std::iota(t.lunOrder.begin(), t.lunOrder.end(), 0u);
    std::stable_sort(t.lunOrder.begin(), t.lunOrder.end(),
                     [&](uint32_t a, uint32_t b) { return t.luns[a].number < t.luns[b].number; });
    for (size_t i = 0; i < t.lunOrder.size(); ++i) {
        const Lun &l = t.luns[t.lunOrder[i]];
        if (i && t.luns[t.lunOrder[i - 1]].number == l.number)
            n.child("luns").fail("LUN " + std::to_string(l.number) + " is listed twice");
        if (t.range && l.number >= t.range->start && l.number - t.range->start < int(t.range->count))
            n.child("luns").fail("LUN " + std::to_string(l.number) + " is also in lun_range");
    }
}

Target ParseTarget(const Node &n) {
    n.expectObject({"wwnn", "wwpn", "port_id", "type", "logged_in", "tape", "inquiry", "luns", "lun_range",
                    "link_errors", "faults", "generate"});
    Target t;
    t.wwpn = n.wwn("wwpn", true);
    t.wwnn = n.has("wwnn") ? n.wwn("wwnn", false) : t.wwpn;
    t.portId = n.portId("port_id");
    std::string type = n.str("type", "fcp");
    if (type == "fcp") t.targetType = SD_TARGETTYPE_FCP;
    else if (type == "nvme") t.targetType = SD_TARGETTYPE_NVME;
    else n.child("type").fail("expected \"fcp\" or \"nvme\"");
    t.loggedIn = n.flag("logged_in", true);
    t.tape = n.flag("tape", false);
    if (n.has("inquiry")) {
        Node in = n.child("inquiry");
        in.expectObject({"qualifier", "type", "vendor", "product", "revision"});
        t.inquiry = ParseInquiry(in, InquiryData{0, 0x0C, "VANTOR", "SIM ARRAY", "0001"});
    }
    ParseLuns(n, t);
    for (const Lun &l : t.luns)
        if (l.inquiry.type == 0x01) t.tape = true;
    if (n.has("link_errors")) {
        Node e = n.child("link_errors");
        e.expectObject({"link_failure", "loss_of_sync", "loss_of_signal", "primitive_seq_errors", "invalid_tx_words",
                        "invalid_crc"});
        t.linkErrors.LinkFailureCount = uint32_t(e.num("link_failure", 0, UINT32_MAX));
        t.linkErrors.LossOfSyncCount = uint32_t(e.num("loss_of_sync", 0, UINT32_MAX));
        t.linkErrors.LossOfSignalCount = uint32_t(e.num("loss_of_signal", 0, UINT32_MAX));
        t.linkErrors.PrimitiveSeqProtocolErrorCount = uint32_t(e.num("primitive_seq_errors", 0, UINT32_MAX));
        t.linkErrors.InvalidTransmissionWordCount = uint32_t(e.num("invalid_tx_words", 0, UINT32_MAX));
        t.linkErrors.InvalidCRCCount = uint32_t(e.num("invalid_crc", 0, UINT32_MAX));
    }
    if (n.has("faults")) {
        Node f = n.child("faults");
        f.expectObject({"report_luns_busy", "report_luns_unit_attention", "report_luns_check",
                        "read_capacity_unit_attention", "removed"});
        t.faults.reportLunsBusy = uint32_t(f.num("report_luns_busy", 0, 1000000));
        t.faults.reportLunsUnitAttention = uint32_t(f.num("report_luns_unit_attention", 0, 1000000));
        t.faults.reportLunsCheck = uint32_t(f.num("report_luns_check", 0, 1000000));
        t.faults.readCapacityUnitAttention = uint32_t(f.num("read_capacity_unit_attention", 0, 1000000));
        t.faults.removed = f.flag("removed", false);
    }
    return t;
}

// "generate": {"count": N} repeats a target N times, adding i to the WWNs and
// the port ID of copy i.
void CheckGenerate(const Node &n, const Target &t, uint64_t count) {
    const uint64_t last = count - 1;
    if (t.wwpn > UINT64_MAX - last || t.wwnn > UINT64_MAX - last)
        n.child("generate")
            .child("count")
            .fail(std::to_string(count) + " targets would run the names past ff:ff:ff:ff:ff:ff:ff:ff");
    if (t.portId + last > 0xFFFFFF)
        n.child("generate")
            .child("count")
            .fail(std::to_string(count) + " targets would run the port IDs past ff:ff:ff");
}

void ParseTargets(const Node &portNode, Port &p) {
    for (const Node &tn : portNode.array("targets")) {
        uint64_t copies = 1;
        if (tn.has("generate")) {
            Node g = tn.child("generate");
            g.expectObject({"count"});
            copies = g.num("count", 1, 4096);
            if (copies == 0) g.child("count").fail("must be at least 1");
        }
        Target t = ParseTarget(tn);
        CheckGenerate(tn, t, copies);
        for (uint64_t i = 0; i < copies; ++i) {
            Target c = t;
            c.wwpn += i;
            c.wwnn += i;
            c.portId += uint32_t(i);
            p.targets.push_back(std::move(c));
        }
    }
}

void ParseStatistics(const Node &n, SDStatistics &s) {
    n.expectObject({"controller_errors", "device_errors",   "lip_resets",       "interrupts",
                    "io_count",          "megabytes",       "input_requests",   "output_requests",
                    "control_requests",  "input_megabytes", "output_megabytes", "tx_frames",
                    "rx_frames",         "tx_words",        "rx_words",         "lip_count",
                    "nos_count",         "error_frames",    "dumped_frames",    "seconds_since_reset",
                    "link_failure",      "loss_of_sync",    "loss_of_signal",   "primitive_seq_errors",
                    "invalid_tx_words",  "invalid_crc"});
    const uint64_t M = UINT64_MAX >> 1;
    s.ControllerErrorCount = n.num("controller_errors", 0, M);
    s.DeviceErrorCount = n.num("device_errors", 0, M);
    s.TotalLipResets = n.num("lip_resets", 0, M);
    s.InterruptCount = n.num("interrupts", 0, M);
    s.TotalIoCount = n.num("io_count", 0, M);
    s.TotalMBytes = n.num("megabytes", 0, M);
    s.InputRequests = n.num("input_requests", 0, M);
    s.OutputRequests = n.num("output_requests", 0, M);
    s.ControlRequests = n.num("control_requests", 0, M);
    s.InputMBytes = n.num("input_megabytes", 0, M);
    s.OutputMBytes = n.num("output_megabytes", 0, M);
    s.TxFrames = n.num("tx_frames", 0, M);
    s.RxFrames = n.num("rx_frames", 0, M);
    s.TxWords = n.num("tx_words", 0, M);
    s.RxWords = n.num("rx_words", 0, M);
    s.LipCount = n.num("lip_count", 0, M);
    s.NosCount = n.num("nos_count", 0, M);
    s.ErrorFrames = n.num("error_frames", 0, M);
    s.DumpedFrames = n.num("dumped_frames", 0, M);
    s.SecondsSinceLastReset = n.num("seconds_since_reset", 0, M);
    s.LinkFailureCount = uint32_t(n.num("link_failure", 0, UINT32_MAX));
    s.LossOfSyncCount = uint32_t(n.num("loss_of_sync", 0, UINT32_MAX));
    s.LossOfSignalCount = uint32_t(n.num("loss_of_signal", 0, UINT32_MAX));
    s.PrimitiveSeqProtocolErrorCount = uint32_t(n.num("primitive_seq_errors", 0, UINT32_MAX));
    s.InvalidTransmissionWordCount = uint32_t(n.num("invalid_tx_words", 0, UINT32_MAX));
    s.InvalidCRCCount = uint32_t(n.num("invalid_crc", 0, UINT32_MAX));
}

// ---- diagnostic fault scripts and traffic (sim_diag.cpp, sim_monitor.cpp)

// "diag_faults": {"loopback": [steps], "read_buffer_miscompare": N}; a step
// is a test status number or a step text ("status=4,crc=2*3", "busy*30").
void ParseDiagFaults(const Node &n, DiagFaults &d) {
    n.expectObject({"loopback", "read_buffer_miscompare"});
    for (const Node &s : n.array("loopback")) {
        if (s.raw().is_number()) {
            const uint64_t status = s.asNum(255);
            if (status < 1) s.fail("a test status is 1 or more");
            DiagStep step;
            step.status = uint32_t(status);
            d.script.push_back(step);
            continue;
        }
        if (!s.raw().is_string()) s.fail("expected a test status number or a step like \"status=4,crc=2*3\"");
        std::string error;
        auto step = ParseDiagStep(s.raw().get<std::string>(), error);
        if (!step) s.fail(error);
        d.script.push_back(*step);
    }
    d.readBufferMiscompare = uint32_t(n.num("read_buffer_miscompare", 0, 1000000));
}

// "traffic": {"io_per_second": N, "mb_per_second": M}
TrafficRates ParseTraffic(const Node &n) {
    n.expectObject({"io_per_second", "mb_per_second"});
    return TrafficRates{n.num("io_per_second", 0, 100000000), n.num("mb_per_second", 0, 1000000)};
}

uint16_t PortState(const Node &n) {
    static const std::map<std::string, uint16_t> states = {
        {"online", SD_PORTSTATE_ONLINE},           {"linkdown", SD_PORTSTATE_LINKDOWN},
        {"offline", SD_PORTSTATE_OFFLINE},         {"bypassed", SD_PORTSTATE_BYPASSED},
        {"diagnostics", SD_PORTSTATE_DIAGNOSTICS}, {"error", SD_PORTSTATE_ERROR}};
    std::string s = n.str("state", "online");
    auto it = states.find(s);
    if (it == states.end())
        n.child("state").fail("unknown port state \"" + s +
                              "\" (online, linkdown, offline, bypassed, diagnostics, error)");
    return it->second;
}

Port ParsePort(const Node &n, const Card &card, uint32_t cardIndex, uint32_t position) {
    n.expectObject({"function",      "port",
                    "interface",     "wwnn",
                    "wwpn",          "port_id",
                    "state",         "dport",
                    "speed",         "supported_speeds",
                    "maintenance",   "reboot_required",
                    "lockdown",      "max_frame_size",
                    "fabric",        "enode_mac",
                    "device_name",   "firmware",
                    "nvram",         "targets",
                    "virtual_ports", "statistics",
                    "faults",        "diag_faults",
                    "traffic",       "nvram_control"});
    Port p;
    p.card = cardIndex;
    p.function = uint8_t(n.num("function", position, 7));
    p.physPort = uint8_t(n.num("port", position, 31));
    std::string itf = n.str("interface", "fc");
    if (itf == "fc") p.interface = SD_INTERFACE_FC;
    else if (itf == "fcoe") p.interface = SD_INTERFACE_FCOE;
    else n.child("interface").fail("expected \"fc\" or \"fcoe\"");
    p.wwnn = n.wwn("wwnn", true);
    p.wwpn = n.wwn("wwpn", true);
    p.portId = n.portId("port_id");
    p.portState = PortState(n);
    p.portSubState = n.flag("dport", false) ? SD_PORTSUBSTATE_DPORT : SD_PORTSUBSTATE_NONE;
    uint32_t gbps = uint32_t(n.num("speed", 8, 128));
    auto code = SpeedCodeForGbps(gbps);
    if (!code) n.child("speed").fail("unknown speed " + std::to_string(gbps) + " Gb/s");
    p.speedCode = *code;
    for (const Node &s : n.array("supported_speeds")) {
        uint8_t bit = SupportedBitForGbps(uint32_t(s.asNum(128)));
        if (!bit) s.fail("no supported-speed bit for this speed");
        p.supportedMask |= bit;
    }
    if (n.flag("maintenance", false)) p.stateFlags |= SD_PORTFLAG_MAINTENANCE;
    if (n.flag("reboot_required", false)) p.stateFlags |= SD_PORTFLAG_REBOOT_REQUIRED;
    if (n.flag("lockdown", false)) p.stateFlags |= SD_PORTFLAG_LOCKDOWN;
    p.maxFrameSize = uint32_t(n.num("max_frame_size", 2048, 2112));
    if (n.has("fabric")) {
        Node f = n.child("fabric");
        f.expectObject({"principal", "adjacent", "name"});
        p.principalFabric = f.wwn("principal", false);
        p.adjacentFabric = f.wwn("adjacent", false);
        p.fabricName = f.wwn("name", false);
    }
    if (n.has("enode_mac")) {
        auto mac = HexFields(n.str("enode_mac"), 6);
        if (!mac) n.child("enode_mac").fail("expected a MAC address like \"00:0e:1e:00:00:01\"");
        std::copy(mac->begin(), mac->end(), p.enodeMac);
    }
    p.deviceName = n.str("device_name", "", 63);
    p.firmware = n.str("firmware", card.versions.firmware, 31);
    p.optionRom = card.versions.bios;
    if (n.has("nvram")) {
        Node nv = n.child("nvram");
        if (!nv.raw().is_object()) nv.fail("expected an object of variable identifier -> value");
        for (auto it = nv.raw().begin(); it != nv.raw().end(); ++it) {
            Node v = nv.child(it.key());
            size_t used = 0;
            unsigned long id = 0;
            try {
                id = std::stoul(it.key(), &used, 0);
            } catch (const std::exception &) {
                used = 0;
            }
            if (used != it.key().size() || id > 0xFFFF) v.fail("expected a numeric variable identifier");
            p.nvram[uint32_t(id)] = uint32_t(v.asNum(UINT32_MAX));
        }
    }
    ParseTargets(n, p);
    for (const Node &vn : n.array("virtual_ports")) {
        vn.expectObject({"wwnn", "wwpn", "vport_id", "qos_type", "qos_value", "traffic"});
        VPortDef v;
        v.wwpn = vn.wwn("wwpn", true);
        v.wwnn = vn.has("wwnn") ? vn.wwn("wwnn", false) : v.wwpn;
        v.vportId = uint16_t(vn.num("vport_id", p.vports.size() + 1, 254));
        if (v.vportId == 0) vn.child("vport_id").fail("must be 1 or more");
        v.qos.VPortId = v.vportId;
        v.qos.QoSType = uint16_t(vn.num("qos_type", SD_QOS_PERCENTAGE, 2));
        v.qos.QoSValue = uint16_t(vn.num("qos_value", 0, 65535));
        if (vn.has("traffic")) v.traffic = ParseTraffic(vn.child("traffic"));
        p.vports.push_back(v);
    }
    if (n.has("statistics")) ParseStatistics(n.child("statistics"), p.statistics);
    if (n.has("faults")) {
        Node f = n.child("faults");
        f.expectObject({"open_unavailable", "unsupported", "loopback_crc_errors", "vport_create"});
        p.openUnavailable = uint32_t(f.num("open_unavailable", 0, 1000000));
        p.unsupported = f.flag("unsupported", false);
        p.diag.crcErrors = uint32_t(f.num("loopback_crc_errors", 0, 1000000));
        p.vportCreateFails = uint32_t(f.num("vport_create", 0, 1000000));
    }
    if (n.has("nvram_control")) {
        Node c = n.child("nvram_control");
        c.expectObject({"read_faults", "write_faults", "bad_checksum"});
        p.nvramControl.readFaults = uint32_t(c.num("read_faults", 0, 1000000));
        p.nvramControl.writeFaults = uint32_t(c.num("write_faults", 0, 1000000));
        p.nvramControl.badChecksum = c.flag("bad_checksum", false);
    }
    if (n.has("diag_faults")) ParseDiagFaults(n.child("diag_faults"), p.diag);
    if (n.has("traffic")) p.traffic = ParseTraffic(n.child("traffic"));
    return p;
}

// "flash": { "layout": [ { "region": "0x01", "size": 262144 }, ... ],
//            "faults": { "read": N, "write": N } }
FlashDef ParseFlash(const Node &n) {
    n.expectObject({"layout", "faults"});
    FlashDef f;
    if (n.has("layout")) {
        std::vector<SDOptionRomRegion> layout;
        for (const Node &r : n.array("layout")) {
            r.expectObject({"region", "size"});
            if (!r.has("region")) r.child("region").fail("missing");
            if (!r.has("size")) r.child("size").fail("missing");
            const uint32_t region = uint32_t(r.num("region", 0, 0xFFFF));
            const uint32_t size = uint32_t(r.num("size", 0, 64u << 20));
            if (size == 0) r.child("size").fail("must be at least 1");
            for (const SDOptionRomRegion &d : layout)
                if (d.Region == region) r.child("region").fail("listed twice");
            layout.push_back({region, size});
        }
        f.layout = std::move(layout);
    }
    if (n.has("faults")) {
        Node faults = n.child("faults");
        faults.expectObject({"read", "write"});
        f.readFaults = uint32_t(faults.num("read", 0, 1000000));
        f.writeFaults = uint32_t(faults.num("write", 0, 1000000));
    }
    return f;
}

// Copy k of a card: port names moved by k << 16 and port IDs by k << 8,
// refused where that would run past the last name or port ID.
void MovePort(const Node &n, Port &p, uint64_t k) {
    const uint64_t step = k << 16;
    const std::string past = "copy " + std::to_string(k) + " would move it past ";
    if (p.wwnn > UINT64_MAX - step) n.child("wwnn").fail(past + "ff:ff:ff:ff:ff:ff:ff:ff");
    if (p.wwpn > UINT64_MAX - step) n.child("wwpn").fail(past + "ff:ff:ff:ff:ff:ff:ff:ff");
    if (p.portId + (k << 8) > 0xFFFFFF) n.child("port_id").fail(past + "ff:ff:ff");
    p.wwnn += step;
    p.wwpn += step;
    p.portId += uint32_t(k << 8);
}

void ParseCard(const Node &n, Host &host) {
    n.expectObject({"serial", "model", "description", "manufacturer", "device_id", "isp_type", "subsystem_vendor_id",
                    "subsystem_id", "chip_revision", "pci_bus", "pci_device", "driver", "firmware", "option_rom", "vpd",
                    "ports", "copies", "flash", "nvme_boot_region"});
    Card c;
    c.serial = n.requiredStr("serial", 31);
    c.model = n.requiredStr("model", 31);
    c.description = n.str("description", c.model + " Fibre Channel adapter", 127);
    c.manufacturer = n.str("manufacturer", c.manufacturer, 79);
    if (n.has("device_id")) {
        c.deviceId = uint16_t(n.num("device_id", 0, 0xFFFF));
    } else if (n.has("isp_type")) {
        uint32_t code = uint32_t(n.num("isp_type", 0, 27));
        auto did = vt::ids::DeviceIdForIspType(code);
        if (!did) n.child("isp_type").fail("no device ID is known for this ISP type");
        c.deviceId = *did;
    } else {
        n.child("device_id").fail("missing (give device_id or isp_type)");
    }
    c.ispType = vt::ids::IspTypeForDeviceId(c.deviceId);
    c.nvramSize = vt::ids::NvramSizeForIspType(c.ispType);
    c.subVendorId = uint16_t(n.num("subsystem_vendor_id", 0x1077, 0xFFFF));
    c.subSystemId = uint16_t(n.num("subsystem_id", 0, 0xFFFF));
    c.chipRevision = uint16_t(n.num("chip_revision", 0, 0xFFFF));
    c.pciBus = uint16_t(n.num("pci_bus", 0, 0xFF));
    c.pciDevice = uint8_t(n.num("pci_device", 0, 31));
    c.versions.firmware = n.str("firmware", "9.00.00", 31);
    if (n.has("nvme_boot_region")) {
        c.nvmeBootRegion = uint32_t(n.num("nvme_boot_region", 334, 0xFFFF));
        if (c.ispType <= 26)
            n.child("nvme_boot_region").fail("only chips after ISP type 26 keep two FC-NVMe boot regions");
        if (c.nvmeBootRegion != 334 && c.nvmeBootRegion != 377) n.child("nvme_boot_region").fail("expected 334 or 377");
    }
    if (n.has("option_rom")) {
        Node o = n.child("option_rom");
        o.expectObject({"bios", "fcode", "efi", "multiboot"});
        c.versions.bios = o.str("bios", "", 31);
        c.versions.fcode = o.str("fcode", "", 31);
        c.versions.efi = o.str("efi", "", 31);
        c.versions.multiboot = o.str("multiboot", "", 31);
    }
    if (n.has("driver")) {
        Node d = n.child("driver");
        d.expectObject({"name", "version", "luns_per_target", "max_vports", "max_vports_qos", "reports_supported_speed",
                        "remote_port_info", "events", "virtual_lane"});
        c.driverName = d.str("name", c.driverName, 31);
        c.driverVersion = d.str("version", "", 31);
        c.lunsPerTarget = uint32_t(d.num("luns_per_target", 256, 65535));
        c.maxVports = uint32_t(d.num("max_vports", c.ispType > 9 ? 126 : 0, SD_MAX_VPORTS_PER_PORT));
        c.maxVportsWithQoS =
            uint32_t(d.num("max_vports_qos", c.maxVports < 8 ? c.maxVports : 8, SD_MAX_VPORTS_PER_PORT));
        if (d.flag("reports_supported_speed", true)) c.driverCaps |= SD_DRVCAP_SUPPORTED_SPEED;
        if (d.flag("remote_port_info", true)) c.driverCaps |= SD_DRVCAP_REMOTE_PORT_INFO;
        if (d.flag("events", true)) c.driverCaps |= SD_DRVCAP_AEN;
        if (d.flag("virtual_lane", false)) c.driverCaps |= SD_DRVCAP_VIRTUAL_LANE;
    } else {
        c.maxVports = c.ispType > 9 ? 126 : 0;
        c.maxVportsWithQoS = c.maxVports < 8 ? c.maxVports : 8;
        c.driverCaps = SD_DRVCAP_SUPPORTED_SPEED | SD_DRVCAP_REMOTE_PORT_INFO | SD_DRVCAP_AEN;
    }
    if (c.maxVports) c.driverCaps |= SD_DRVCAP_NPIV;
    if (c.driverVersion.empty()) c.driverVersion = "10.02.09.100-k";
    if (n.has("vpd")) {
        Node v = n.child("vpd");
        if (!v.raw().is_object()) v.fail("expected an object of keyword -> text");
        for (auto it = v.raw().begin(); it != v.raw().end(); ++it) {
            if (it.key().size() != 2) v.child(it.key()).fail("a VPD keyword has two characters");
            if (!it.value().is_string()) v.child(it.key()).fail("expected a string");
            std::string val = it.value().get<std::string>();
            if (val.size() > 255) v.child(it.key()).fail("longer than 255 characters");
            c.vpd.emplace_back(it.key(), val);
        }
    }

    if (n.has("flash")) c.flash = ParseFlash(n.child("flash"));

    uint64_t copies = n.num("copies", 1, 31);
    if (copies == 0) n.child("copies").fail("must be at least 1");
    std::vector<Node> portNodes = n.array("ports");
    if (portNodes.empty()) n.child("ports").fail("a card needs at least one port");
    // Copy k of a repeated card: serial "<serial>-<k>", next PCI bus, and
    // port names and port IDs moved by k.
    for (uint64_t k = 0; k < copies; ++k) {
        Card copy = c;
        if (copies > 1) {
            copy.serial = c.serial + "-" + std::to_string(k);
            if (copy.serial.size() > 31) n.child("serial").fail("too long for the copies suffix");
            copy.pciBus = uint16_t(c.pciBus + k);
        }
        uint32_t cardIndex = uint32_t(host.cards.size());
        for (size_t i = 0; i < portNodes.size(); ++i) {
            Port p = ParsePort(portNodes[i], copy, cardIndex, uint32_t(i));
            MovePort(portNodes[i], p, k);
            copy.ports.push_back(uint32_t(host.ports.size()));
            host.ports.push_back(std::move(p));
        }
        host.cards.push_back(std::move(copy));
    }
}

std::string HashText(const std::string &text) {
    uint64_t h = 1469598103934665603ull;  // FNV-1a
    for (unsigned char ch : text) {
        h ^= ch;
        h *= 1099511628211ull;
    }
    char buf[20];
    snprintf(buf, sizeof buf, "%016llx", static_cast<unsigned long long>(h));
    return buf;
}

void CheckHost(Host &host) {
    std::unordered_map<uint64_t, std::string> names;
    for (size_t i = 0; i < host.ports.size(); ++i) {
        const Port &p = host.ports[i];
        const Card &c = host.cards[p.card];
        std::string where = "cards[serial " + c.serial + "].ports[" + std::to_string(p.physPort) + "]";
        auto claim = [&](uint64_t wwpn, const std::string &what) {
            if (wwpn == 0) return;
            auto [it, fresh] = names.emplace(wwpn, what);
            if (!fresh)
                throw HostError("host file " + host.path + ": " + what + ": WWPN " + FormatWwn(wwpn) +
                                " is already used by " + it->second);
        };
        claim(p.wwpn, where + ".wwpn");
        for (size_t v = 0; v < p.vports.size(); ++v)
            claim(p.vports[v].wwpn, where + ".virtual_ports[" + std::to_string(v) + "].wwpn");
        if (!p.vports.empty() && c.maxVports == 0)
            throw HostError("host file " + host.path + ": " + where +
                            ".virtual_ports: this chip has no virtual-port support");
        std::unordered_map<uint64_t, size_t> tw;
        for (size_t t = 0; t < p.targets.size(); ++t)
            if (!tw.emplace(p.targets[t].wwpn, t).second)
                throw HostError("host file " + host.path + ": " + where + ".targets: WWPN " +
                                FormatWwn(p.targets[t].wwpn) + " appears twice");
    }
    // A remote port never has the name of one of this host's own ports.
    for (const Port &p : host.ports)
        for (const Target &t : p.targets)
            if (auto it = names.find(t.wwpn); it != names.end())
                throw HostError("host file " + host.path + ": cards[serial " + host.cards[p.card].serial + "].ports[" +
                                std::to_string(p.physPort) + "].targets: WWPN " + FormatWwn(t.wwpn) +
                                " is already used by " + it->second);
}

// Saturating, so that no file can wrap the count below the budget.
uint64_t SatAdd(uint64_t a, uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }
uint64_t SatMul(uint64_t a, uint64_t b) { return b && a > UINT64_MAX / b ? UINT64_MAX : a * b; }

std::string Thousands(uint64_t v) {
    std::string digits = std::to_string(v), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i && (digits.size() - i) % 3 == 0) out.push_back(',');
        out.push_back(digits[i]);
    }
    return out;
}

// Counts what the file expands to from its counts alone (copies, generate,
// lun_range, the lists) and refuses a host past the instance limit or the
// budget before anything is built.
void CheckExpansion(const Node &root) {
    uint64_t ports = 0, vports = 0, targets = 0, luns = 0;
    for (const Node &card : root.array("cards")) {
        const uint64_t copies = card.num("copies", 1, 31);
        for (const Node &port : card.array("ports")) {
            uint64_t t = 0, l = 0;
            for (const Node &tn : port.array("targets")) {
                const uint64_t count = tn.has("generate") ? tn.child("generate").num("count", 1, 4096) : 1;
                uint64_t perTarget = tn.array("luns").size();
                if (tn.has("lun_range")) perTarget += tn.child("lun_range").num("count", 0, 0x4000);
                t = SatAdd(t, count);
                l = SatAdd(l, SatMul(count, perTarget));
            }
            if (t > kMaxTargetsPerPort)
                port.child("targets").fail(Thousands(t) + " targets; a port sees at most " +
                                           Thousands(kMaxTargetsPerPort));
            // A virtual port sees the targets and LUNs of its physical port.
            const uint64_t nv = port.array("virtual_ports").size();
            const uint64_t functions = SatMul(copies, SatAdd(nv, 1));
            ports = SatAdd(ports, copies);
            vports = SatAdd(vports, SatMul(copies, nv));
            targets = SatAdd(targets, SatMul(functions, t));
            luns = SatAdd(luns, SatMul(functions, l));
        }
    }
    if (ports > SD_MAX_INSTANCES)
        root.child("cards").fail("the host has " + std::to_string(ports) + " ports; at most 31 instances can exist");
    if (ports + vports > SD_MAX_INSTANCES)
        root.child("cards").fail("physical and virtual ports together exceed 31 instances");
    const uint64_t total = SatAdd(SatAdd(ports + vports, targets), luns);
    if (total > kMaxHostElements)
        root.child("cards").fail("the host expands to " + Thousands(total) + " ports, targets and LUNs (" +
                                 Thousands(ports + vports) + " ports, " + Thousands(targets) + " targets, " +
                                 Thousands(luns) + " LUNs); at most " + Thousands(kMaxHostElements) + " are allowed");
}

}  // namespace

Host ParseHost(const std::string &text, const std::string &path) {
    json doc;
    DismantleOnExit dismantle(doc);
    try {
        doc = json::parse(text);
    } catch (const json::exception &e) {  // a syntax error, or a number past the range of a double
        throw HostError("host file " + path + ": not valid JSON: " + e.what());
    }
    Host host;
    host.path = path;
    host.contentHash = HashText(text);
    Node root(doc, "host", host.path);
    root.expectObject({"description", "cards"});
    CheckExpansion(root);
    std::vector<Node> cards = root.array("cards");
    for (const Node &c : cards) ParseCard(c, host);
    // Targets take the fault-counter keys of their port and position.
    for (Port &p : host.ports)
        for (Target &t : p.targets)
            if (t.faults.any()) t.faultKey = FormatWwn(p.wwpn) + "/" + FormatWwn(t.wwpn);
    CheckHost(host);
    return host;
}

Host LoadHost(const std::string &path) {
    std::string text;
    if (!ReadTextFile(path, text)) throw HostError("host file " + path + ": cannot be opened");
    return ParseHost(text, path);
}

}  // namespace vtsdm

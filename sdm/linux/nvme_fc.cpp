#include "nvme_fc.h"

#include <algorithm>

#include "sysfs.h"
#include "wire.h"

namespace vtsdm::linuxfc {

namespace {

using wire::PutBe;
using wire::PutText;

std::vector<uint8_t> IllegalRequest(uint8_t asc) { return wire::FixedSense(0x05, asc, 0); }

// "nn-0x...:pn-0x..." -> the two names.
bool ParseNamePair(std::string_view text, uint64_t &nn, uint64_t &pn) {
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    std::string_view a = text.substr(0, colon), b = text.substr(colon + 1);
    if (a.substr(0, 3) != "nn-" || b.substr(0, 3) != "pn-") return false;
    auto n = ParseHex(a.substr(3)), p = ParseHex(b.substr(3));
    if (!n || !p) return false;
    nn = *n;
    pn = *p;
    return true;
}

}  // namespace

std::optional<std::string> NamespaceDevice(std::string_view entry, std::string_view controller) {
    auto digits = [](std::string_view s) {
        return !s.empty() && s.size() <= 9 && s.find_first_not_of("0123456789") == std::string_view::npos;
    };
    if (entry.substr(0, 4) != "nvme") return std::nullopt;
    std::string_view rest = entry.substr(4);
    const size_t n = rest.rfind('n');
    if (n == std::string_view::npos || !digits(rest.substr(n + 1))) return std::nullopt;
    const std::string_view head = rest.substr(0, n), nsid = rest.substr(n + 1);
    const size_t c = head.find('c');
    if (c == std::string_view::npos) {  // nvme<C>n<N>: this controller's own device
        if (!digits(head) || "nvme" + std::string(head) != controller) return std::nullopt;
        return std::string(entry);
    }
    // nvme<S>c<C>n<N>: a path of the multipath head nvme<S>n<N>
    if (!digits(head.substr(0, c)) || !digits(head.substr(c + 1)) ||
        "nvme" + std::string(head.substr(c + 1)) != controller)
        return std::nullopt;
    return "nvme" + std::string(head.substr(0, c)) + "n" + std::string(nsid);
}

std::optional<NvmeFcAddress> ParseNvmeFcAddress(std::string_view text) {
    NvmeFcAddress a;
    bool target = false, host = false;
    text = Trim(text);
    while (!text.empty()) {
        const size_t comma = text.find(',');
        std::string_view part = text.substr(0, comma);
        if (part.substr(0, 7) == "traddr=") target = ParseNamePair(part.substr(7), a.targetWwnn, a.targetWwpn);
        else if (part.substr(0, 12) == "host_traddr=") host = ParseNamePair(part.substr(12), a.hostWwnn, a.hostWwpn);
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    if (!target || !host) return std::nullopt;
    return a;
}

std::optional<NvmeController> FindNvmeController(const std::string &sysfs, uint64_t hostWwpn, uint64_t targetWwpn) {
    const std::string cls = sysfs + "/class/nvme";
    for (const std::string &name : ListDir(cls)) {
        const std::string dir = cls + "/" + name;
        if (ReadAttr(dir + "/transport").value_or("") != "fc") continue;
        auto address = ParseNvmeFcAddress(ReadAttr(dir + "/address").value_or(""));
        if (!address || address->hostWwpn != hostWwpn || address->targetWwpn != targetWwpn) continue;
        NvmeController c;
        c.name = name;
        c.model = ReadAttr(dir + "/model").value_or("");
        c.firmware = ReadAttr(dir + "/firmware_rev").value_or("");
        for (const std::string &ns : ListDir(dir)) {
            auto head = NamespaceDevice(ns, name);
            if (!head) continue;
            auto nsid = ParseDecimal(ReadAttr(dir + "/" + ns + "/nsid").value_or(""));
            if (!nsid || *nsid <= 0 || *nsid > 0xFFFF) continue;
            NvmeNamespace n;
            n.nsid = uint32_t(*nsid);
            n.name = *head;
            n.sectors = uint64_t(
                std::max<int64_t>(0, ParseDecimal(ReadAttr(dir + "/" + ns + "/size").value_or("")).value_or(0)));
            auto bs = ParseDecimal(ReadAttr(dir + "/" + ns + "/queue/logical_block_size").value_or(""));
            if (bs && *bs >= 512 && *bs <= 65536) n.blockSize = uint32_t(*bs);
            c.namespaces.push_back(std::move(n));
        }
        std::sort(c.namespaces.begin(), c.namespaces.end(),
                  [](const NvmeNamespace &a, const NvmeNamespace &b) { return a.nsid < b.nsid; });
        return c;
    }
    return std::nullopt;
}

uint32_t AnswerNvme(const NvmeController &c, const ScsiRequest &rq, ScsiReply &reply) {
    reply.data.clear();
    reply.sense.clear();
    if (rq.op == ScsiOp::ReportLuns) {
        std::vector<uint8_t> &b = reply.data;
        b.assign(8 + 8 * c.namespaces.size(), 0);
        PutBe(b, 0, 8 * c.namespaces.size(), 4);
        size_t at = 8;
        for (const NvmeNamespace &n : c.namespaces) {
            if (n.nsid > 255) b[at] = uint8_t(0x40 | ((n.nsid >> 8) & 0x3F));
            b[at + 1] = uint8_t(n.nsid & 0xFF);
            at += 8;
        }
        return SDERR_NONE;
    }
    const NvmeNamespace *ns = nullptr;
    for (const NvmeNamespace &n : c.namespaces)
        if (n.nsid == rq.lun) ns = &n;
    if (!ns) {
        if (rq.op == ScsiOp::Inquiry && !rq.evpd) {
            reply.data.assign(36, 0);
            reply.data[0] = 0x7F;  // no logical unit here
            return SDERR_NONE;
        }
        reply.sense = IllegalRequest(0x25);
        return SDERR_SCSI_CHECK_CONDITION;
    }
    const uint64_t blocks = ns->sectors * 512 / ns->blockSize;
    switch (rq.op) {
    case ScsiOp::Inquiry:
        if (rq.evpd) {
            reply.sense = IllegalRequest(0x24);
            return SDERR_SCSI_CHECK_CONDITION;
        }
        reply.data.assign(36, 0);
        reply.data[2] = 0x06;
        reply.data[3] = 0x02;
        reply.data[4] = 31;
        PutText(reply.data, 8, "NVMe", 8);
        PutText(reply.data, 16, c.model, 16);
        PutText(reply.data, 32, c.firmware, 4);
        return SDERR_NONE;
    case ScsiOp::ReadCapacity10:
        reply.data.assign(8, 0);
        PutBe(reply.data, 0, blocks == 0 ? 0 : std::min<uint64_t>(blocks - 1, 0xFFFFFFFFull), 4);
        PutBe(reply.data, 4, ns->blockSize, 4);
        return SDERR_NONE;
    case ScsiOp::ReadCapacity16:
        reply.data.assign(32, 0);
        PutBe(reply.data, 0, blocks ? blocks - 1 : 0, 8);
        PutBe(reply.data, 8, ns->blockSize, 4);
        return SDERR_NONE;
    case ScsiOp::TestUnitReady: return SDERR_NONE;
    default: reply.sense = IllegalRequest(0x20); return SDERR_SCSI_CHECK_CONDITION;
    }
}

}  // namespace vtsdm::linuxfc

#include "sysfs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>

#include "vtsdm.h"

namespace vtsdm::linuxfc {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0'; }

std::string Lower(std::string_view s) {
    std::string out(s);
    for (char &c : out)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return out;
}

template <typename T>
std::optional<T> Number(std::string_view text, int base) {
    T value{};
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

// Splits "a, b,c" at commas, each part trimmed; empty parts are dropped.
std::vector<std::string_view> SplitList(std::string_view text) {
    std::vector<std::string_view> out;
    while (!text.empty()) {
        size_t comma = text.find(',');
        std::string_view part = Trim(text.substr(0, comma));
        if (!part.empty()) out.push_back(part);
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    return out;
}

}  // namespace

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::optional<uint64_t> ParseHex(std::string_view text) {
    text = Trim(text);
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.remove_prefix(2);
    if (text.size() > 16) return std::nullopt;
    return Number<uint64_t>(text, 16);
}

std::optional<uint32_t> ParsePortId(std::string_view text) {
    auto v = ParseHex(text);
    if (!v || *v > 0xFFFFFF) return std::nullopt;
    return uint32_t(*v);
}

uint64_t ParseCounter(std::string_view text) {
    auto v = ParseHex(text);
    if (!v || *v == UINT64_MAX) return 0;
    return *v;
}

std::optional<int64_t> ParseDecimal(std::string_view text) {
    text = Trim(text);
    size_t n = 0;
    if (n < text.size() && text[n] == '-') ++n;
    while (n < text.size() && text[n] >= '0' && text[n] <= '9') ++n;
    return Number<int64_t>(text.substr(0, n), 10);
}

std::optional<uint32_t> ParseSpeedGbps(std::string_view text) {
    text = Trim(text);
    const std::string_view unit = " Gbit";
    if (text.size() <= unit.size() || text.substr(text.size() - unit.size()) != unit) return std::nullopt;
    auto v = Number<uint32_t>(text.substr(0, text.size() - unit.size()), 10);
    if (!v || *v == 0 || *v > 1024) return std::nullopt;
    return v;
}

std::vector<uint32_t> ParseSpeedList(std::string_view text) {
    std::vector<uint32_t> out;
    for (std::string_view part : SplitList(text))
        if (auto g = ParseSpeedGbps(part)) out.push_back(*g);
    return out;
}

uint16_t ParseHostPortState(std::string_view text) {
    const std::string s = Lower(Trim(text));
    if (s == "online" || s == "marginal") return SD_PORTSTATE_ONLINE;
    if (s == "linkdown" || s == "blocked") return SD_PORTSTATE_LINKDOWN;
    if (s == "bypassed") return SD_PORTSTATE_BYPASSED;
    if (s == "diagnostics" || s == "loopback") return SD_PORTSTATE_DIAGNOSTICS;
    if (s == "error") return SD_PORTSTATE_ERROR;
    return SD_PORTSTATE_OFFLINE;  // offline, not present, unknown, deleted
}

bool RemotePortLoggedIn(std::string_view text) {
    const std::string s = Lower(Trim(text));
    return s == "online" || s == "marginal";
}

uint32_t ParseRoles(std::string_view text) {
    uint32_t roles = 0;
    for (std::string_view part : SplitList(text)) {
        const std::string r = Lower(part);
        if (r == "fcp target") roles |= kRoleFcpTarget;
        else if (r == "fcp initiator") roles |= kRoleFcpInitiator;
        else if (r == "nvme target") roles |= kRoleNvmeTarget;
        else if (r == "nvme initiator") roles |= kRoleNvmeInitiator;
        else if (r == "nvme discovery") roles |= kRoleNvmeDiscovery;
    }
    return roles;
}

std::optional<ScsiName> ParseScsiName(std::string_view text) {
    text = Trim(text);
    ScsiName n;
    std::string_view parts[4];
    for (int i = 0; i < 4; ++i) {
        size_t colon = text.find(':');
        if ((i < 3) == (colon == std::string_view::npos)) return std::nullopt;
        parts[i] = text.substr(0, colon);
        text.remove_prefix(i < 3 ? colon + 1 : text.size());
    }
    auto h = Number<uint32_t>(parts[0], 10), c = Number<uint32_t>(parts[1], 10), t = Number<uint32_t>(parts[2], 10);
    auto l = Number<uint64_t>(parts[3], 10);
    if (!h || !c || !t || !l) return std::nullopt;
    n.host = *h;
    n.channel = *c;
    n.id = *t;
    n.lun = *l;
    return n;
}

std::optional<uint32_t> ParseHostName(std::string_view text) {
    text = Trim(text);
    if (text.substr(0, 4) != "host") return std::nullopt;
    return Number<uint32_t>(text.substr(4), 10);
}

std::optional<PortName> ParsePortName(std::string_view prefix, std::string_view text) {
    text = Trim(text);
    if (text.substr(0, prefix.size()) != prefix) return std::nullopt;
    text.remove_prefix(prefix.size());
    size_t colon = text.find(':'), dash = text.find('-');
    if (colon == std::string_view::npos || dash == std::string_view::npos || dash < colon) return std::nullopt;
    auto h = Number<uint32_t>(text.substr(0, colon), 10);
    auto c = Number<uint32_t>(text.substr(colon + 1, dash - colon - 1), 10);
    auto n = Number<uint32_t>(text.substr(dash + 1), 10);
    if (!h || !c || !n) return std::nullopt;
    return PortName{*h, *c, *n};
}

std::optional<PciAddress> ParsePciAddress(std::string_view text) {
    text = Trim(text);
    // dddd:bb:dd.f
    if (text.size() < 12) return std::nullopt;
    size_t dot = text.rfind('.');
    size_t c2 = text.rfind(':', dot);
    if (dot == std::string_view::npos || c2 == std::string_view::npos || c2 == 0) return std::nullopt;
    size_t c1 = text.rfind(':', c2 - 1);
    if (c1 == std::string_view::npos) return std::nullopt;
    auto dom = Number<uint32_t>(text.substr(0, c1), 16);
    auto bus = Number<uint32_t>(text.substr(c1 + 1, c2 - c1 - 1), 16);
    auto dev = Number<uint32_t>(text.substr(c2 + 1, dot - c2 - 1), 16);
    auto fn = Number<uint32_t>(text.substr(dot + 1), 16);
    if (!dom || !bus || !dev || !fn || *bus > 0xFF || *dev > 0x1F || *fn > 7) return std::nullopt;
    return PciAddress{*dom, uint8_t(*bus), uint8_t(*dev), uint8_t(*fn)};
}

std::optional<std::pair<uint64_t, uint64_t>> ParseWwnPair(std::string_view text) {
    text = Trim(text);
    size_t colon = text.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    auto one = [](std::string_view s) -> std::optional<uint64_t> {
        if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) s.remove_prefix(2);
        if (s.size() != 16) return std::nullopt;
        return Number<uint64_t>(s, 16);
    };
    auto p = one(text.substr(0, colon)), n = one(text.substr(colon + 1));
    if (!p || !n) return std::nullopt;
    return std::make_pair(*p, *n);
}

std::string FormatWwnPair(uint64_t wwpn, uint64_t wwnn) {
    char buf[40];
    snprintf(buf, sizeof buf, "%016llx:%016llx", static_cast<unsigned long long>(wwpn),
             static_cast<unsigned long long>(wwnn));
    return buf;
}

uint16_t LunNumberOf(uint64_t linuxLun) { return uint16_t(linuxLun & 0xFFFF) & uint16_t(~0x4000u); }

// ------------------------------------------------------------ files

std::optional<std::string> ReadFile(const std::string &path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string out;
    char buf[4096];
    for (;;) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0) {
            if (errno == EINTR) continue;
            ::close(fd);
            return std::nullopt;
        }
        if (n == 0) break;
        out.append(buf, size_t(n));
        // An attribute comes in one read; only a full buffer may have more.
        if (size_t(n) < sizeof buf) break;
    }
    ::close(fd);
    return out;
}

std::optional<std::string> ReadAttr(const std::string &path) {
    auto text = ReadFile(path);
    if (!text) return std::nullopt;
    return std::string(Trim(*text));
}

bool WriteAttr(const std::string &path, const std::string &text) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    ssize_t n;
    do n = ::write(fd, text.data(), text.size());
    while (n < 0 && errno == EINTR);
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return n == ssize_t(text.size());
}

std::vector<std::string> ListDir(const std::string &path) {
    std::vector<std::string> out;
    DIR *d = opendir(path.c_str());
    if (!d) return out;
    while (dirent *e = readdir(d)) {
        std::string_view n = e->d_name;
        if (n == "." || n == "..") continue;
        out.emplace_back(n);
    }
    closedir(d);
    std::sort(out.begin(), out.end());
    return out;
}

std::string LinkBaseName(const std::string &path) {
    char buf[PATH_MAX];
    ssize_t n = readlink(path.c_str(), buf, sizeof buf - 1);
    if (n <= 0) return "";
    std::string target(buf, size_t(n));
    auto slash = target.rfind('/');
    return slash == std::string::npos ? target : target.substr(slash + 1);
}

std::string RealPath(const std::string &path) {
    char *r = realpath(path.c_str(), nullptr);
    if (!r) return "";
    std::string out = r;
    free(r);
    return out;
}

bool IsDir(const std::string &path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace vtsdm::linuxfc

// Persistent-binding tokens of the driver configuration file: parsing one
// token into the binding records, the tokens of a text with their positions,
// and writing an adapter's records back as tokens.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "drvtext.h"

namespace vt::drv {
namespace {

constexpr std::string_view kPrefix = "scsi-vta";
constexpr std::string_view kSeparators = " \\;\t\r\n";
constexpr std::string_view kAdapterPort = "-adapter-port";
constexpr uint32_t kBlockBytes = VTLAPI_LUN_BLOCK / 8;
constexpr uint32_t kBlocks = VTLAPI_MAX_LUNS / VTLAPI_LUN_BLOCK;
constexpr size_t kTokenBuffer = 160;

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Exactly `n` bytes as hexadecimal pairs at the start of `value`.
bool ReadHexBytes(std::string_view value, uint8_t *out, size_t n) {
    if (value.size() < 2 * n) return false;
    for (size_t i = 0; i < n; ++i) {
        const int hi = HexDigit(value[2 * i]), lo = HexDigit(value[2 * i + 1]);
        if (hi < 0 || lo < 0) return false;
        out[i] = uint8_t(hi << 4 | lo);
    }
    return true;
}

// A mask of one block: as many hexadecimal pairs as stand at the start of
// `value`, at most one block's worth.
void ReadMask(std::string_view value, uint8_t *block) {
    for (size_t i = 0; i < kBlockBytes && 2 * i + 1 < value.size(); ++i) {
        const int hi = HexDigit(value[2 * i]), lo = HexDigit(value[2 * i + 1]);
        if (hi < 0 || lo < 0) return;
        block[i] = uint8_t(hi << 4 | lo);
    }
}

// A decimal number of at most `max` at the start of `text`; its length in
// `used`.
std::optional<uint32_t> ReadDecimal(std::string_view text, uint32_t max, size_t &used) {
    uint64_t v = 0;
    used = 0;
    while (used < text.size() && text[used] >= '0' && text[used] <= '9') {
        v = v * 10 + uint64_t(text[used] - '0');
        if (v > max) return std::nullopt;
        ++used;
    }
    if (used == 0) return std::nullopt;
    return uint32_t(v);
}

// The number after `word` in `text`, e.g. 3 of "-tgt-3"; the position after
// it in `after`.
std::optional<uint32_t> NumberAfter(std::string_view text, std::string_view word, uint32_t max, size_t &after) {
    const size_t at = text.find(word);
    if (at == std::string_view::npos) return std::nullopt;
    size_t used = 0;
    auto v = ReadDecimal(text.substr(at + word.size()), max, used);
    after = at + word.size() + used;
    return v;
}

// First LUN of a numbered block ("256" of "-lun_disabled-256"): a non-zero
// multiple of 256 whose block lies within the masks.
std::optional<uint32_t> BlockStart(std::string_view text) {
    size_t used = 0;
    auto n = ReadDecimal(text, VTLAPI_MAX_LUNS, used);
    if (!n || used != text.size() || *n == 0 || *n % VTLAPI_LUN_BLOCK != 0 || *n >= VTLAPI_MAX_LUNS)
        return std::nullopt;
    return n;
}

VtlapiTargetBinding &RecordFor(Bindings &records, uint8_t target, uint8_t di) {
    // A target's tokens stand together: look from the last record back.
    for (auto r = records.rbegin(); r != records.rend(); ++r)
        if (r->Target.TargetNumber == target && r->Target.DeviceInstance == di) return *r;
    VtlapiTargetBinding &r = records.emplace_back();  // zeroed
    r.Target.TargetNumber = target;
    r.Target.DeviceInstance = di;
    return r;
}

bool HasAdapterNumber(std::string_view token) {
    if (token.substr(0, kPrefix.size()) != kPrefix) return false;
    size_t used = 0;
    return ReadDecimal(token.substr(kPrefix.size()), UINT32_MAX, used).has_value() &&
           token.size() > kPrefix.size() + used && token[kPrefix.size() + used] == '-';
}

std::string Hex(const uint8_t *bytes, size_t n) {
    std::string s;
    char pair[3];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
        s += pair;
    }
    return s;
}

// One block of a mask as text: its pairs up to the last non-zero one, at
// least one.
std::string MaskText(const uint8_t *block) {
    size_t n = kBlockBytes;
    while (n > 1 && block[n - 1] == 0) --n;
    return Hex(block, n);
}

bool BlockUsed(const uint8_t *mask, uint32_t block) {
    const uint8_t *b = mask + block * kBlockBytes;
    return std::any_of(b, b + kBlockBytes, [](uint8_t x) { return x != 0; });
}

}  // namespace

namespace {

bool IsAdapterPortName(std::string_view name) {
    return name.size() >= kAdapterPort.size() && name.substr(name.size() - kAdapterPort.size()) == kAdapterPort &&
           name.find("-tgt-") == std::string_view::npos;
}

// The kind of a token without parsing a target token's value.
TokenKind Classify(std::string_view token, Wwn &adapterPort) {
    const size_t eq = token.find('=');
    if (eq == std::string_view::npos || !HasAdapterNumber(token)) return TokenKind::Ignored;
    if (!IsAdapterPortName(token.substr(0, eq))) return TokenKind::Target;
    Wwn wwpn{};
    if (!ReadHexBytes(token.substr(eq + 1), wwpn.data(), wwpn.size())) return TokenKind::Ignored;
    adapterPort = wwpn;
    return TokenKind::AdapterPort;
}

}  // namespace

TokenKind ParseToken(std::string_view token, Bindings &records, Wwn &adapterPort) {
    const TokenKind kind = Classify(token, adapterPort);
    if (kind != TokenKind::Target) return kind;
    const size_t eq = token.find('=');
    const std::string_view name = token.substr(0, eq), value = token.substr(eq + 1);
    size_t afterTarget = 0, afterDi = 0;
    const auto target = NumberAfter(name, "-tgt-", 255, afterTarget);
    const auto di = NumberAfter(name, "-di-", 255, afterDi);
    if (!target || !di || afterDi < afterTarget) return TokenKind::Ignored;
    const std::string_view what = name.substr(afterDi);

    // Values are checked before the record is touched, so that an ignored
    // token adds nothing.
    uint8_t bytes[8];
    uint8_t block[kBlockBytes] = {};
    if (what == "-node" || what == "-port") {
        if (!ReadHexBytes(value, bytes, 8)) return TokenKind::Ignored;
        auto &r = RecordFor(records, uint8_t(*target), uint8_t(*di));
        std::memcpy(what == "-node" ? r.Target.WWNN : r.Target.WWPN, bytes, 8);
    } else if (what == "-pid") {
        if (!ReadHexBytes(value, bytes, 3)) return TokenKind::Ignored;
        std::memcpy(RecordFor(records, uint8_t(*target), uint8_t(*di)).Target.PortId, bytes, 3);
    } else if (what == "-control") {
        if (!ReadHexBytes(value, bytes, 1)) return TokenKind::Ignored;
        RecordFor(records, uint8_t(*target), uint8_t(*di)).Target.Control = bytes[0];
    } else {
        bool preferred = false;
        std::optional<uint32_t> first;
        if (what == "-preferred" || what == "-lun-disabled") {
            preferred = what == "-preferred";
            first = 0;
        } else if (what.substr(0, 15) == "-lun_preferred-") {
            preferred = true;
            first = BlockStart(what.substr(15));
        } else if (what.substr(0, 14) == "-lun_disabled-") {
            first = BlockStart(what.substr(14));
        }
        if (!first) return TokenKind::Ignored;
        ReadMask(value, block);
        auto &r = RecordFor(records, uint8_t(*target), uint8_t(*di));
        uint8_t *mask = preferred ? r.PreferredLuns : r.DisabledLuns;
        std::memcpy(mask + *first / 8, block, kBlockBytes);
    }
    return TokenKind::Target;
}

std::vector<TokenSpan> Tokenize(std::string_view text) {
    std::vector<TokenSpan> out;
    size_t lineStart = 0;
    while (lineStart < text.size()) {
        size_t lineEnd = text.find('\n', lineStart);
        if (lineEnd == std::string_view::npos) lineEnd = text.size();
        const std::string_view line = text.substr(lineStart, lineEnd - lineStart);
        if (!IsCommentLine(line)) {
            size_t i = 0;
            while (i < line.size()) {
                i = line.find_first_not_of(kSeparators, i);
                if (i == std::string_view::npos) break;
                size_t end = line.find_first_of(kSeparators, i);
                if (end == std::string_view::npos) end = line.size();
                out.push_back({lineStart + i, lineStart + end});
                i = end;
            }
        }
        lineStart = lineEnd + 1;
    }
    return out;
}

namespace {

// Calls f(span, kind, owned) for every token, `owned` telling whether it is
// a binding token of `adapter`.
template <typename F>
void WalkAdapterTokens(std::string_view text, const Wwn &adapter, F f) {
    bool current = false;
    for (const TokenSpan &s : Tokenize(text)) {
        const std::string_view token = text.substr(s.begin, s.end - s.begin);
        Wwn port{};
        const TokenKind kind = Classify(token, port);
        if (kind == TokenKind::AdapterPort) current = port == adapter;
        f(s, token, kind, current && HasAdapterNumber(token));
    }
}

}  // namespace

Bindings ReadAdapter(std::string_view text, const Wwn &adapter) {
    Bindings records;
    WalkAdapterTokens(text, adapter, [&](const TokenSpan &, std::string_view token, TokenKind kind, bool owned) {
        Wwn unused{};
        if (owned && kind == TokenKind::Target) ParseToken(token, records, unused);
    });
    return records;
}

std::string FormatAdapter(uint32_t instance, const Wwn &adapter, const Bindings &records, bool withLunMasks) {
    std::string out;
    char token[kTokenBuffer];
    auto add = [&](const char *format, auto... args) {
        std::snprintf(token, sizeof token, format, args...);
        out += token;
    };
    add("scsi-vta%u-adapter-port=%s\\;", instance, Hex(adapter.data(), 8).c_str());
    for (const VtlapiTargetBinding &r : records) {
        const unsigned t = r.Target.TargetNumber, d = r.Target.DeviceInstance;
        add("scsi-vta%u-tgt-%u-di-%u-node=%s\\;", instance, t, d, Hex(r.Target.WWNN, 8).c_str());
        add("scsi-vta%u-tgt-%u-di-%u-port=%s\\;", instance, t, d, Hex(r.Target.WWPN, 8).c_str());
        if (r.Target.PortId[0] || r.Target.PortId[1] || r.Target.PortId[2])
            add("scsi-vta%u-tgt-%u-di-%u-pid=%s\\;", instance, t, d, Hex(r.Target.PortId, 3).c_str());
        if (withLunMasks) {
            struct {
                const uint8_t *mask;
                const char *plain;
                const char *numbered;
            } const kinds[] = {{r.PreferredLuns, "preferred", "lun_preferred"},
                               {r.DisabledLuns, "lun-disabled", "lun_disabled"}};
            for (const auto &k : kinds) {
                add("scsi-vta%u-tgt-%u-di-%u-%s=%s\\;", instance, t, d, k.plain, MaskText(k.mask).c_str());
                for (uint32_t b = 1; b < kBlocks; ++b)
                    if (BlockUsed(k.mask, b))
                        add("scsi-vta%u-tgt-%u-di-%u-%s-%u=%s\\;", instance, t, d, k.numbered, b * VTLAPI_LUN_BLOCK,
                            MaskText(k.mask + b * kBlockBytes).c_str());
            }
        }
        add("scsi-vta%u-tgt-%u-di-%u-control=%02x\\;", instance, t, d, unsigned(r.Target.Control));
    }
    return out;
}

std::string ReplaceAdapter(std::string_view text, const Wwn &adapter, std::string_view tokens) {
    // Byte ranges to drop: each token of the adapter with the separators
    // that follow it on its line.  The first is always an adapter-port
    // token of the adapter, and every binding token after it up to the next
    // adapter's port token is dropped too, so the new tokens put in its
    // place take nothing from another adapter.
    std::vector<TokenSpan> drop;
    WalkAdapterTokens(text, adapter, [&](const TokenSpan &s, std::string_view, TokenKind, bool owned) {
        if (!owned) return;
        size_t end = s.end;
        while (end < text.size() && text[end] != '\n' && text[end] != '\r' &&
               kSeparators.find(text[end]) != std::string_view::npos)
            ++end;
        drop.push_back({s.begin, end});
    });

    std::string out;
    out.reserve(text.size() + tokens.size() + 1);
    size_t next = 0;  // next range of `drop`
    for (std::string_view line : SplitLines(text)) {
        const size_t lineStart = size_t(line.data() - text.data());
        const size_t lineEnd = lineStart + line.size();
        std::string kept;
        bool touched = false;
        size_t pos = lineStart;
        while (next < drop.size() && drop[next].begin < lineEnd) {
            kept.append(text.substr(pos, drop[next].begin - pos));
            if (next == 0) kept.append(tokens);
            pos = drop[next].end;
            touched = true;
            ++next;
        }
        kept.append(text.substr(pos, lineEnd - pos));
        const bool blank = LineBody(kept).find_first_not_of(kSeparators) == std::string_view::npos;
        if (touched && blank) continue;  // nothing of the line is left
        // A "#" that followed a removed token must not turn the rest of the
        // line into a comment: a separator goes before it.
        if (touched && IsCommentLine(kept)) kept.insert(kept.find('#'), "\\;");
        out += kept;
    }
    if (drop.empty() && !tokens.empty()) {
        if (!out.empty() && out.back() != '\n') out += '\n';
        out.append(tokens);
        out += '\n';
    }
    return out;
}

}  // namespace vt::drv

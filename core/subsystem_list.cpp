// The board table: BuildSubSystemListFromFile deciphers and parses
// <install>/data/adapters_adapter_provider.properties (format in
// common/boardtable_crypto.h) into a SubSystemList.
#include "core/boardtable.h"
#include "oss/oss.h"

#include "boardtable_crypto.h"
#include "oss/oss_handle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

namespace bt = vt::boardtable;

// Far above any real table; a larger file is not ours.
constexpr off_t kMaxFileSize = 1 << 20;

// Reads the whole file, or sets `error` to the reason it could not.
std::optional<std::vector<uint8_t>> ReadWholeFile(const char *path, std::string &error) {
    const vt::oss::Fd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        error = std::strerror(errno);
        return std::nullopt;
    }
    std::vector<uint8_t> data;
    struct stat st {};
    if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        error = "not a regular file";
    } else if (st.st_size > kMaxFileSize) {
        error = "file too large";
    } else {
        data.resize(static_cast<size_t>(st.st_size));
        size_t got = 0;
        while (got < data.size()) {
            ssize_t n = read(fd.get(), data.data() + got, data.size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        if (got != data.size()) error = "short read";
    }
    if (!error.empty()) return std::nullopt;
    return data;
}

// A 16-bit ID written as "0x..." (hexadecimal) or in decimal.
std::optional<uint16_t> ParseId(std::string_view text) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    unsigned value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size() || value > 0xFFFF) return std::nullopt;
    return static_cast<uint16_t>(value);
}

template <size_t N>
std::optional<uint16_t> FieldId(const char (&field)[N]) {
    return ParseId(std::string_view(field, strnlen(field, N)));
}

template <size_t N>
void CopyField(char (&dest)[N], const std::map<std::string, std::string> &fields, const char *key) {
    auto it = fields.find(key);
    if (it == fields.end()) return;
    const size_t n = std::min(it->second.size(), N - 1);  // longer texts are cut
    std::memcpy(dest, it->second.data(), n);
    dest[n] = '\0';
}

// Parses the deciphered body; nullopt and the 1-based line number of the
// first malformed record on failure.
std::optional<std::vector<SubSystemRecord>> ParseBody(std::string_view body, size_t &badLine) {
    std::vector<SubSystemRecord> records;
    size_t lineNo = 0;
    while (!body.empty()) {
        ++lineNo;
        const size_t eol = body.find('\n');
        std::string_view line = body.substr(0, eol);
        body.remove_prefix(eol == std::string_view::npos ? body.size() : eol + 1);
        if (line.empty()) continue;
        auto fields = bt::ParseRecord(line);
        if (!fields || !fields->contains("SSDID") || !fields->contains("SSVID") || !ParseId(fields->at("SSDID")) ||
            !ParseId(fields->at("SSVID"))) {
            badLine = lineNo;
            return std::nullopt;
        }
        SubSystemRecord rec{};
        CopyField(rec.SSDID, *fields, "SSDID");
        CopyField(rec.SSVID, *fields, "SSVID");
        CopyField(rec.ISP, *fields, "ISP");
        CopyField(rec.Desc, *fields, "Desc");
        CopyField(rec.Supported, *fields, "Supported");
        records.push_back(rec);
    }
    return records;
}

}  // namespace

extern "C" {

VTAPI_EXPORT SubSystemList *BuildSubSystemListFromFile(const char *path) {
    if (path == nullptr || *path == '\0') {
        LogError(__FILE__, __LINE__, "BuildSubSystemListFromFile: no board table path");
        return nullptr;
    }
    std::string error;
    auto image = ReadWholeFile(path, error);
    if (!image) {
        LogDebug(__FILE__, __LINE__, "BuildSubSystemListFromFile: cannot read board table %s: %s", path, error.c_str());
        return nullptr;
    }
    std::string body;
    const bt::OpenStatus status = bt::Open(*image, body);
    if (status != bt::OpenStatus::kOk) {
        LogError(__FILE__, __LINE__, "BuildSubSystemListFromFile: board table %s is %s; ignored", path,
                 image->empty() ? "empty" : bt::Describe(status));
        return nullptr;
    }
    size_t badLine = 0;
    auto records = ParseBody(body, badLine);
    if (!records) {
        LogError(__FILE__, __LINE__,
                 "BuildSubSystemListFromFile: board table %s has a malformed record at line %zu; ignored", path,
                 badLine);
        return nullptr;
    }

    auto *list = static_cast<SubSystemList *>(std::calloc(1, sizeof(SubSystemList)));
    if (list == nullptr) return nullptr;
    for (const SubSystemRecord &rec : *records) {
        auto *node = static_cast<SubSystemRecord *>(std::malloc(sizeof(SubSystemRecord)));
        if (node == nullptr) {
            FreeSubSystemList(list);
            return nullptr;
        }
        *node = rec;
        node->next = nullptr;
        (list->Last ? list->Last->next : list->First) = node;
        list->Last = node;
        ++list->Count;
    }
    LogDebug(__FILE__, __LINE__, "BuildSubSystemListFromFile: %u boards read from %s", list->Count, path);
    return list;
}

VTAPI_EXPORT SubSystemRecord *FindSubSystemInSubSystemList(SubSystemList *list, uint16_t ssdid, uint16_t ssvid) {
    if (list == nullptr) return nullptr;
    for (SubSystemRecord *rec = list->First; rec != nullptr; rec = rec->next) {
        if (FieldId(rec->SSDID) == ssdid && FieldId(rec->SSVID) == ssvid) return rec;
    }
    return nullptr;
}

void FreeSubSystemList(SubSystemList *list) {
    if (list == nullptr) return;
    for (SubSystemRecord *rec = list->First; rec != nullptr;) {
        SubSystemRecord *next = rec->next;
        std::free(rec);
        rec = next;
    }
    std::free(list);
}

}  // extern "C"

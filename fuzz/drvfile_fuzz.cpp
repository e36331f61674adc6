// Feeds arbitrary text to the parser of the driver configuration file's
// persistent-binding tokens.  For the adapter of the first adapter-port
// token (and a fixed one) it checks that the records read are written back
// as tokens that read into the same records, and that replacing the
// adapter's tokens keeps its records and every other adapter's.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "../drvfiles/drvtext.h"

namespace {

using vt::drv::Bindings;
using vt::drv::Wwn;

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

bool Same(const Bindings &a, const Bindings &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::memcmp(&a[i], &b[i], sizeof a[i]) != 0) return false;
    return true;
}

// The adapters named by the text's adapter-port tokens, in order.
std::vector<Wwn> Adapters(std::string_view text) {
    std::vector<Wwn> out;
    Bindings scratch;
    for (const auto &s : vt::drv::Tokenize(text)) {
        Wwn w{};
        if (vt::drv::ParseToken(text.substr(s.begin, s.end - s.begin), scratch, w) == vt::drv::TokenKind::AdapterPort)
            out.push_back(w);
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > VTLAPI_DRVFILE_MAX) return 0;
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::vector<Wwn> adapters = Adapters(text);
    const Wwn fixed = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
    const Wwn mine = adapters.empty() ? fixed : adapters.front();
    const Bindings records = vt::drv::ReadAdapter(text, mine);

    for (bool luns : {true, false}) {
        const std::string tokens = vt::drv::FormatAdapter(7, mine, records, luns);
        Bindings again = vt::drv::ReadAdapter(tokens, mine);
        if (!luns)
            for (auto &r : again) {  // written without masks: compare the rest
                Check(std::all_of(r.PreferredLuns, std::end(r.PreferredLuns), [](uint8_t b) { return b == 0; }));
                Check(std::all_of(r.DisabledLuns, std::end(r.DisabledLuns), [](uint8_t b) { return b == 0; }));
            }
        if (luns) Check(Same(again, records));
        else Check(again.size() == records.size());
    }

    const std::string tokens = records.empty() ? std::string() : vt::drv::FormatAdapter(7, mine, records, true);
    const std::string replaced = vt::drv::ReplaceAdapter(text, mine, tokens);
    Check(Same(vt::drv::ReadAdapter(replaced, mine), records));
    for (const Wwn &other : adapters)
        if (other != mine) Check(Same(vt::drv::ReadAdapter(replaced, other), vt::drv::ReadAdapter(text, other)));
    // Replacing again with the same tokens changes nothing more.
    Check(vt::drv::ReplaceAdapter(replaced, mine, tokens) == replaced || records.empty());
    return 0;
}

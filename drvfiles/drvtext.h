// Text of the driver files: persistent-binding tokens in the driver
// configuration file, and the driver option line of the module option
// files.  Pure functions over text, so that the parsers can be tested and
// fuzzed without any file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drvfiles.h"

#pragma GCC visibility push(hidden)

namespace vt::drv {

using Wwn = std::array<uint8_t, 8>;
using Bindings = std::vector<VtlapiTargetBinding>;

// ------------------------------------------------------------ binding tokens

enum class TokenKind { Target, AdapterPort, Ignored };

// Parses one token.  A target token fills the record of its (target,
// device instance), which is added when new; an adapter-port token stores
// its WWPN in `adapterPort`.
TokenKind ParseToken(std::string_view token, Bindings &records, Wwn &adapterPort);

// A token of a driver configuration text: [begin, end) without separators.
struct TokenSpan {
    size_t begin = 0;
    size_t end = 0;
};
// The tokens of the text in order; comment lines are skipped.
std::vector<TokenSpan> Tokenize(std::string_view text);

// The records of adapter port `adapter`: the tokens after each of its
// adapter-port tokens up to the next adapter-port token.
Bindings ReadAdapter(std::string_view text, const Wwn &adapter);

// The adapter's tokens, without a line end.
std::string FormatAdapter(uint32_t instance, const Wwn &adapter, const Bindings &records, bool withLunMasks);

// The text with every token of adapter `adapter` removed and `tokens` put
// where the first of them stood (on a line of its own at the end when it
// had none; nowhere when `tokens` is empty).  A line left blank by the
// removal goes; every other line stays byte for byte.
std::string ReplaceAdapter(std::string_view text, const Wwn &adapter, std::string_view tokens);

// LUN mask bits.
inline bool LunBit(const uint8_t *mask, uint32_t lun) { return (mask[lun / 8] >> (lun % 8)) & 1u; }
inline void SetLunBit(uint8_t *mask, uint32_t lun) { mask[lun / 8] = uint8_t(mask[lun / 8] | (1u << (lun % 8))); }

// ------------------------------------------------------------- option line

// The extended-options hand-over words put on the option line when the
// bindings are saved in the driver configuration file.
inline constexpr std::string_view kExtOptsHandover = "ConfigRequired=1 vt2xuseextopts=/tmp/vttmp.txt";

// A line whose first non-blank character is "#".
bool IsCommentLine(std::string_view line);

// The lines of a text, each with its line end.
std::vector<std::string_view> SplitLines(std::string_view text);

// A line without its line end.
std::string_view LineBody(std::string_view line);

// Index of the module's option line: the first line that is not a comment
// and contains "options <module>" (within its first VTLAPI_OPTLINE_MAX - 1
// characters).
std::optional<size_t> FindOptionLine(const std::vector<std::string_view> &lines, std::string_view module);

// The text with the module's option line replaced by `newLine`, which is
// appended when there is none.  Every other line stays byte for byte.
std::string ReplaceOptionLine(std::string_view text, std::string_view module, std::string_view newLine);

// A parameter of an option line: the value of its "name=value" word (empty
// for a bare "name").  Words after a "#" are a comment.
std::optional<std::string> GetOptionParam(std::string_view line, std::string_view module, std::string_view name);

// The option line with the parameter set (replaced in place, else added
// after the others) or, for a null value, removed.  A line without
// "options <module>" becomes "options <module> name=value".
std::string SetOptionParam(std::string_view line, std::string_view module, std::string_view name,
                           const std::string *value);

// The option line with every word of `words` ("name=value ...") set.
std::string SetOptionParams(std::string_view line, std::string_view module, std::string_view words);

}  // namespace vt::drv

#pragma GCC visibility pop

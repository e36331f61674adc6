// Reports of the command-line core: one walk over the data, written to the
// sink the switches chose once for the command (text, XML format 1 or 2,
// JSON).
//
// A walk says what each datum is once and marks the forms that show it:
//
//   Field(key, label, value)   text "Label : value", JSON "key": value
//   Row(table, values)         text columns, JSON one field per column key
//   Line(pieces)               text one line of pieces, JSON its keyed pieces
//   Title, Blank, Note, Rule   text only
//   JsonField(key, value)      JSON only
//   Xml(emitter)               XML only: the XML_Emit... call of the datum
//
// and groups them in scopes: Object and List (JSON objects and arrays),
// Port and Target (XML's HBA and Target blocks, a JSON object each, and in
// text a heading or a blank line between blocks).  Failures before the
// report opens make a document of their own (Fail).
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "flash/vpd.h"
#include "vtapi.h"

namespace vt::cli {

// One datum: its text form and its JSON form.
class Value {
public:
    enum class Kind { None, Blank, Label, Text, Number, Numbers };

    // Unknown: "-" in text, null in JSON.
    static Value None() { return Value(Kind::None, "-"); }
    // An empty cell: nothing in text, left out of JSON.
    static Value Blank() { return Value(Kind::Blank, ""); }
    // Text only (a caption such as "Total"); left out of JSON.
    static Value Label(std::string text) { return Value(Kind::Label, std::move(text)); }
    static Value Text(std::string text) { return Value(Kind::Text, std::move(text)); }
    // A number, written in text as `text` (e.g. "64 Gb/s") or as digits.
    static Value Number(uint64_t n, std::string text);
    static Value Number(uint64_t n) { return Number(n, std::to_string(n)); }
    // A list of numbers (e.g. supported speeds) with its text form.
    static Value Numbers(std::vector<uint64_t> numbers, std::string text);
    // A value shown as one text but given to JSON as several fields, which
    // replace the field that holds it (e.g. "3 (5 FC ports, 1 virtual port)").
    Value WithParts(std::vector<std::pair<std::string, Value>> parts) &&;

    Kind kind() const { return kind_; }
    const std::string &text() const { return text_; }
    uint64_t number() const { return number_; }
    const std::vector<uint64_t> &numbers() const { return numbers_; }
    const std::vector<std::pair<std::string, Value>> &parts() const { return parts_; }

private:
    Value(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}

    Kind kind_;
    std::string text_;
    uint64_t number_ = 0;
    std::vector<uint64_t> numbers_;
    std::vector<std::pair<std::string, Value>> parts_;
};

// A column of a text table.  `gap` blanks come before the cell; `width`
// pads it (0: no padding); `clip` cuts the text (0: never).  A column that
// starts a new line (`newLine`) is indented by its gap; `skipEmpty` leaves
// out an empty cell together with its gap.
struct Column {
    const char *key;      // JSON key of the cell
    const char *heading;  // nullptr: no heading (continuation line)
    int width = 0;
    int gap = 2;
    bool right = false;
    int clip = 0;
    bool newLine = false;
    bool skipEmpty = false;
};

using Table = std::vector<Column>;

// A piece of a text line: `prefix` then the value (cut to `clip`
// characters when non-zero); a piece without key is text only, and a piece
// whose value is empty is left out with its prefix when `skipEmpty`.
struct Piece {
    const char *key;
    const char *prefix;
    Value value;
    int clip = 0;
    bool skipEmpty = false;
};

enum class PortStyle {
    Heading,  // text: a heading line and a rule; JSON: the port's names
    Row,      // text: nothing (a row follows); JSON: an object the row fills
    XmlOnly,  // only XML shows the port (a selected port with nothing to show)
};

enum class TargetStyle {
    Block,  // text: a blank line between the targets of a port
    Row,    // text: nothing (a row follows)
};

class Sink {
public:
    virtual ~Sink() = default;

    // The document.  Fail reports a failure: a complete document of its own
    // before Open, or the end of the open one.
    virtual void Open() = 0;
    virtual void Close() = 0;
    virtual void Fail(int32_t status, const std::string &message) = 0;

    virtual void Title(const std::string &) {}
    virtual void Blank() {}
    virtual void Note(const std::string &) {}
    virtual void Rule(char) {}
    virtual void Field(const char *key, const char *label, const Value &value, int labelWidth = kLabelWidth) = 0;
    virtual void JsonField(const char *, const Value &) {}
    virtual void Line(const std::vector<Piece> &pieces) = 0;
    virtual void Columns(const Table &) {}
    virtual void Row(const Table &table, const std::vector<Value> &cells) = 0;
    virtual void Xml(const std::function<void()> &) {}
    // The command changed something that takes effect after a reboot: said
    // when the document closes or fails (XML's Reboot element, JSON's
    // "reboot_required").
    virtual void Reboot() {}

    virtual void BeginObject(const char *) {}
    virtual void EndObject() {}
    virtual void BeginList(const char *) {}
    virtual void EndList() {}
    virtual void BeginItem() {}
    virtual void EndItem() {}
    virtual void BeginPort(const SDMDevice &device, PortStyle style) = 0;
    virtual void EndPort(PortStyle style) = 0;
    virtual void BeginTarget(const TargetEntry &, TargetStyle) {}
    virtual void EndTarget() {}

    static constexpr int kLabelWidth = 20;
    static constexpr int kWidth = 79;  // text fits an 80-column terminal
};

// The sink for an output form (TARN_OUTPUT_*).
std::unique_ptr<Sink> MakeSink(int32_t output);

// Scopes that end their group when they go out of scope.
class ObjectScope {
public:
    ObjectScope(Sink &sink, const char *key) : sink_(sink) { sink_.BeginObject(key); }
    ~ObjectScope() { sink_.EndObject(); }
    ObjectScope(const ObjectScope &) = delete;
    ObjectScope &operator=(const ObjectScope &) = delete;

private:
    Sink &sink_;
};

class ListScope {
public:
    ListScope(Sink &sink, const char *key) : sink_(sink) { sink_.BeginList(key); }
    ~ListScope() { sink_.EndList(); }
    ListScope(const ListScope &) = delete;
    ListScope &operator=(const ListScope &) = delete;

private:
    Sink &sink_;
};

class ItemScope {
public:
    explicit ItemScope(Sink &sink) : sink_(sink) { sink_.BeginItem(); }
    ~ItemScope() { sink_.EndItem(); }
    ItemScope(const ItemScope &) = delete;
    ItemScope &operator=(const ItemScope &) = delete;

private:
    Sink &sink_;
};

class PortScope {
public:
    PortScope(Sink &sink, const SDMDevice &device, PortStyle style) : sink_(sink), style_(style) {
        sink_.BeginPort(device, style);
    }
    ~PortScope() { sink_.EndPort(style_); }
    PortScope(const PortScope &) = delete;
    PortScope &operator=(const PortScope &) = delete;

private:
    Sink &sink_;
    PortStyle style_;
};

class TargetScope {
public:
    TargetScope(Sink &sink, const TargetEntry &target, TargetStyle style) : sink_(sink) {
        sink_.BeginTarget(target, style);
    }
    ~TargetScope() { sink_.EndTarget(); }
    TargetScope(const TargetScope &) = delete;
    TargetScope &operator=(const TargetScope &) = delete;

private:
    Sink &sink_;
};

// ------------------------------------------------------- shared values

std::string WwnText(const uint8_t *wwn);    // "xx:xx:xx:xx:xx:xx:xx:xx"
std::string PortIdText(const uint8_t *id);  // "xx:xx:xx"
// A fixed-size text field of a record, up to its first NUL.
template <size_t N>
std::string FieldText(const char (&field)[N]) {
    size_t n = 0;
    while (n < N && field[n] != '\0') ++n;
    return std::string(field, n);
}
std::string Trim(std::string text);  // without leading and trailing blanks
// The port's model, with the "-S" of the OEM boards that carry it.
std::string ModelName(const SDMDevice &device);
std::string PortState(const SDMDevice &device);  // "Online", "Link Down", ...
// The port speed in Gb/s ("64 Gb/s"), None when unknown.
Value PortSpeed(const SDMDevice &device);
// The supported speeds ("16, 32, 64 Gb/s"), "Unknown" when none are known.
Value SupportedSpeeds(const SDMDevice &device);
// The identity of a port: its instance, model, port (or virtual port id)
// and WWPN, as the pieces of its heading.
std::vector<Piece> PortPieces(const SDMDevice &device);
const char *PeripheralTypeText(uint8_t type);  // "Disk", "Tape", ...
uint64_t LunCapacity(const LunEntry &lun);     // bytes; 0 when unknown
std::string SizeText(uint64_t bytes);          // "107.4 GB"; "-" for 0
Value Size(uint64_t bytes);                    // the same with the bytes for JSON
bool IsNVMeTarget(const TargetEntry &target);
// The value of a VPD entry as text: as it stands, or in hexadecimal
// ("0x8e") for the "RV" checksum or a value holding an unprintable byte.
std::string VpdValueText(const VPDEntry &entry);

}  // namespace vt::cli

// The XML sink: the frame, the port and target blocks and the status
// message of the XML_Emit... emitters, which write format 1 or format 2 as
// bXmlOutPut2 says.  The walk hands in the emitters of its data (Xml);
// text-only and JSON-only parts are not shown.
#include "cli/sinks.h"
#include "cli/xml.h"

namespace vt::cli {
namespace {

class XmlSink final : public Sink {
public:
    void Open() override {
        XML_EmitMainHeader();
        open_ = true;
    }
    void Close() override { XML_EmitStatusMessage(0, nullptr, reboot_ ? 1 : 0, 0, 1); }
    void Reboot() override { reboot_ = true; }
    void Fail(int32_t status, const std::string &message) override {
        XML_EmitStatusMessage(status, message.c_str(), reboot_ ? 1 : 0, open_ ? 0 : 1, 1);
    }

    void Field(const char *, const char *, const Value &, int) override {}
    void Line(const std::vector<Piece> &) override {}
    void Row(const Table &, const std::vector<Value> &) override {}
    void Xml(const std::function<void()> &emit) override { emit(); }

    void BeginPort(const SDMDevice &device, PortStyle) override { XML_EmitHBAHeader(&device); }
    void EndPort(PortStyle) override { XML_EmitHBAFooter(); }
    void BeginTarget(const TargetEntry &target, TargetStyle) override { XML_EmitTargetHeader(&target); }
    void EndTarget() override { XML_EmitTargetFooter(); }

private:
    bool open_ = false;
    bool reboot_ = false;
};

}  // namespace

std::unique_ptr<Sink> MakeXmlSink() { return std::make_unique<XmlSink>(); }

}  // namespace vt::cli

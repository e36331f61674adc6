// HBA parameters: the 39-row table, name and value checks with their exact
// messages, the NVRAM checksum, reading and changing every parameter of a
// port through VTAPI_GetHBAParamsInfo / VTAPI_UpdateHBAParameters, the
// cross-parameter rules, and what a locked, faulty, damaged or unsupported
// port answers.
#include <map>
#include <string>
#include <vector>

#include "config/nvram_config.h"
#include "config_fixture.h"
#include "vtapi_cli.h"

namespace {

using vttest::ConfigTest;
using vttest::kFcoePort;
using vttest::kKitePort0;
using vttest::kKiteVport;
using vttest::kWrenPort;

// ------------------------------------------------------------ the table

// The rows as the user knows them: name, alias the parser takes, a value
// that passes, one that fails and the message it gets.
struct Row {
    const char *name, *alias;
    int32_t good, bad;
    const char *message;
};
const Row kRows[] = {
    {"DataRate", "DR", 7, 8, "Invalid input, data rate must be from 0 to 5!"},
    {"ConnectionOption", "CO", 3, 4, "Invalid input, connection option must be from 0 to 2 (From 0 to 3 for 1Gb HBA)!"},
    {"EnableFCTape", "EF", 1, 2, "Invalid input, FC tape support enable option must be 0 or 1!"},
    {"MaximumLunsPerTarget", "ML", 256, 100, "Maximum LUNs Per Target value must be 0,8,16,32,64,128 or 256!"},
    {"EnableHardLoopID", "HL", 0, 2, "Invalid input, hardLoop ID enable option must be 0 or 1!"},
    {"HardLoopID", "HD", 125, 126, "Invalid input, hard lop ID value must be from 0 to 125!"},
    {"FrameSize", "FR", 2112, 4096, "Invalid input, FC frame size value must be 512, 1024,2048 or 2112!"},
    {"EnableLipFullLogin", "FL", 1, 3, "Invalid input, lip full login enable option must be 0 or 1!"},
    {"EnableLipReset", "LP", 1, 3, "Invalid input, lip reset enable option must be 0 or 1!"},
    {"EnableTargetReset", "TR", 1, 3, "Invalid input, target reset enable option must be 0 or 1!"},
    {"EnableExtendedLogging", "EL", 1, 3, "Invalid input, extended error logging enable option must be 0 or 1!"},
    {"ResetDelay", "RD", 255, 256, "Invalid input, loop reset delay value must be from 0 to 255!"},
    {"LoginRetryCount", "LR", 255, 256, "Invalid input, login retry count value must be from 0 to 255!"},
    {"LinkDownTimeout", "LT", 240, 241, "Invalid input, link down time out value must be from 0 to 240!"},
    {"LinkDownError", "LD", -2, 0, "Invalid HBA parameter name/value!"},
    {"PortDownRetryCount", "PD", 255, 256, "Invalid input, port down retry value must be from 0 to 255!"},
    {"ExecutionThrottle", "ET", 0, 65536, "Invalid input, execution throttle value must be from 1 to 65535!"},
    {"FastErrorReporting", "FE", -2, 1, "Invalid HBA parameter name/value!"},
    {"OperationMode", "OM", 6, 4, "Invalid input, operation mode value must be 0,5 or 6!"},
    {"InterruptDelayTimer", "ID", 255, 256, "Invalid input, interrupt delay timer value must be from 0 to 255!"},
    {"EnableBIOS", "EB", 1, 2, "Invalid input, legacy BIOS support enable option must be 0 or 1!"},
    {"EnableReceiveOutOfOrderFrame", "EO", -2, 1, nullptr},
    {"DescendingLoopIDSearch", "DS", 1, 2, "Invalid input, descending loop ID search enable option must be 0 or 1!"},
    {"EnableLR", "EE", 1, 2, "Invalid input, LR support enable option must be 0 or 1!"},
    {"EnableSelectableBoot", "ES", 1, 2, "Invalid input, legacy BIOS selectable boot enable option must be 0 or 1!"},
    {"EnableFabricAssignWWN", "FN", 1, 2, "Invalid input, fabric assign WWN enable option must be 0 or 1!"},
    {"EnableFabricAssignBootLun", "FB", 1, 2, "Invalid input, fabric assign boot LUN enable option must be 0 or 1!"},
    {"EnableDPort", "DP", 1, 2, "Invalid input, diagnostics port enable option must be 0 or 1!"},
    {"EnableDistanceSupport", "ED", 1, 2, "Invalid input, LR support enable option must be 0 or 1!"},
    {"EnableMinSpeed", "MS", 1, 2, "Invalid input, minimum speed enable option must be 0 or 1!"},
    {"PreferFCP", "PF", 1, 2, "Invalid input, FCP prefer enable option must be 0 or 1!"},
    {"EnableUSCM", "EC", 1, 2, "Invalid input, uscm enable option must be 0 or 1!"},
    {"EnableSelectiveLogin", "SL", 1, 2, "Invalid input, selective login enable option must be 0 or 1!"},
    {"EnableSelectiveLUN", "LL", 1, 2, "Invalid input, selective LUN login enable option must be 0 or 1!"},
    {"ForceWorldLogin", "WL", 1, 2, "Invalid input, world login enable option must be 0 or 1!"},
    {"NVMeEnable", "NE", 1, 2, "Invalid input, FC NVMe enable option must be 0 or 1!"},
    {"PortDisable", "PS", 1, 2, "Invalid input, FC NVMe enable option must be 0 or 1!"},
    {"FabricPriority", "FP", 1, 2, "Invalid input, FC NVMe enable option must be 0 or 1!"},
    {"VirtualLane", "VL", 1, 2, "Invalid input, virtual lane optionn must be 0 or 1!"},
};
static_assert(sizeof kRows / sizeof kRows[0] == 39);

TEST(ParamTable, RowsInOrderWithTheirAliases) {
    InitializeParamTable();
    for (int i = 0; i < 39; ++i) {
        SCOPED_TRACE(kRows[i].name);
        EXPECT_STREQ(User_NVRam_Entry[i].name, kRows[i].name);
        EXPECT_EQ(User_NVRam_Entry[i].value, -1);
        // The stored alias of row 36 is "PD", like row 15's, deliberately.
        EXPECT_STREQ(User_NVRam_Entry[i].alias, i == 36 ? "PD" : kRows[i].alias);
    }
}

TEST(ParamTable, NamesAreMatchedWithoutRegardToCase) {
    for (int i = 0; i < 39; ++i) {
        if (i == 14 || i == 17) continue;
        std::string lower = kRows[i].name;
        for (char &c : lower) c = char(tolower(c));
        EXPECT_EQ(ValidateParamName(lower.c_str()), i) << lower;
        EXPECT_EQ(ValidateParamName(kRows[i].alias), i) << kRows[i].alias;
    }
    EXPECT_EQ(ValidateParamName("pd"), 15);
    EXPECT_EQ(ValidateParamName("Ps"), 36);

    // Refused by name, whatever the value.
    for (const char *name : {"FE", "fastErrorReporting"}) {
        EXPECT_EQ(ValidateParamName(name), -1);
        EXPECT_EQ(vt::config::ConfigErrorText(),
                  std::string("Unsupported HBA parameter 'Fast Error Reporting' (Driver/OS limitation)!"));
    }
    for (const char *name : {"ld", "LinkDownError"}) {
        EXPECT_EQ(ValidateParamName(name), -1);
        EXPECT_EQ(vt::config::ConfigErrorText(),
                  std::string("Unsupported HBA parameter 'Link Down Error' (Driver/OS limitation)!"));
    }
    EXPECT_EQ(ValidateParamName("FrameSizes"), -1);
    EXPECT_EQ(vt::config::ConfigErrorText(), std::string("Invalid option 'FrameSizes'!"));
}

TEST(ParamTable, EveryValueRuleAndMessage) {
    for (int i = 0; i < 39; ++i) {
        SCOPED_TRACE(kRows[i].name);
        if (kRows[i].good != -2) {
            EXPECT_EQ(ValidateParamValue(i, kRows[i].good), 0);
        }
        vt::config::SetConfigErrorText("before");
        EXPECT_EQ(ValidateParamValue(i, kRows[i].bad), -1);
        // EnableReceiveOutOfOrderFrame refuses every value without a message.
        EXPECT_EQ(vt::config::ConfigErrorText(), std::string(kRows[i].message ? kRows[i].message : "before"));
    }
    // Kept as they are: the accepted values reach beyond what the messages say.
    EXPECT_EQ(ValidateParamValue(0, 6), 0);
    EXPECT_EQ(ValidateParamValue(16, 65535), 0);
    EXPECT_EQ(ValidateParamValue(3, 0), 0);
    EXPECT_EQ(ValidateParamValue(21, 0), -1);
    EXPECT_EQ(ValidateParamValue(18, 5), 0);
    EXPECT_EQ(ValidateParamValue(18, 1), -1);
    EXPECT_EQ(ValidateParamValue(5, -1), -1);
}

TEST(ParamTable, ParsingWordsNumbersAndTheSharedAlias) {
    InitializeParamTable();
    bParseErr = 0;
    char name[64], value[64];
    auto parse = [&](const char *n, const char *v) {
        snprintf(name, sizeof name, "%s", n);
        snprintf(value, sizeof value, "%s", v);
        return ParseNVRAMParameter(name, value);
    };
    EXPECT_EQ(parse("EnableBIOS", "eNaBlE"), 0);
    EXPECT_STREQ(value, "1");  // replaced in place
    EXPECT_EQ(SearchUserNVRAMConfig("EnableBIOS"), 1);
    EXPECT_EQ(parse("EF", "Disable"), 0);
    EXPECT_STREQ(value, "0");
    EXPECT_EQ(SearchUserNVRAMConfig("ef"), 0);
    EXPECT_EQ(bParseErr, 0);

    // A number field does not take the words.
    EXPECT_EQ(parse("HardLoopID", "Enable"), -1);
    EXPECT_EQ(bParseErr, 1);
    EXPECT_EQ(SearchUserNVRAMConfig("HardLoopID"), -1);
    bParseErr = 0;
    EXPECT_EQ(parse("FrameSize", "1k"), -1);
    EXPECT_EQ(parse("FrameSize", "-512"), -1);
    EXPECT_EQ(parse("ExecutionThrottle", "99999999999999"), -1);
    EXPECT_EQ(vt::config::ConfigErrorText(),
              std::string("Invalid input, execution throttle value must be from 1 to 65535!"));
    EXPECT_EQ(bParseErr, 1);
    bParseErr = 0;
    EXPECT_EQ(parse("", "1"), -1);
    EXPECT_EQ(bParseErr, 1);
    bParseErr = 0;
    EXPECT_EQ(parse("FE", "0"), -1);
    EXPECT_EQ(bParseErr, 1);
    bParseErr = 0;
    EXPECT_EQ(parse("EO", "1"), -1);
    bParseErr = 0;

    // Through the parser each alias reaches its own row...
    EXPECT_EQ(parse("PD", "20"), 0);
    EXPECT_EQ(User_NVRam_Entry[15].value, 20);
    EXPECT_EQ(User_NVRam_Entry[36].value, -1);
    EXPECT_EQ(parse("PS", "1"), 0);
    EXPECT_EQ(User_NVRam_Entry[36].value, 1);
    // ...while adding by the stored alias "PD" sets both rows, deliberately.
    InitializeParamTable();
    AddUserNVRAMConfig("pd", 7);
    EXPECT_EQ(User_NVRam_Entry[15].value, 7);
    EXPECT_EQ(User_NVRam_Entry[36].value, 7);
    EXPECT_EQ(SearchUserNVRAMConfig("PD"), 7);
    EXPECT_EQ(SearchUserNVRAMConfig("PS"), -1);  // no stored alias "PS"
    InitializeParamTable();
    EXPECT_EQ(SearchUserNVRAMConfig("PortDisable"), -1);
}

TEST(NvramChecksum, SizesAndTheStoredValue) {
    std::vector<uint8_t> img(512, 0);
    EXPECT_EQ(ComputeNVRAMDataChecksum(img.data(), 255), 0x20000072u);
    EXPECT_EQ(ComputeNVRAMDataChecksum(nullptr, 512), 0u);
    EXPECT_EQ(ComputeNVRAMDataChecksum(img.data(), 300), 0u);
    EXPECT_EQ(img, std::vector<uint8_t>(512, 0));

    // 256 bytes: the negated 8-bit sum, widened.
    std::vector<uint8_t> small(256, 0);
    small[0] = 0x08;
    small[100] = 0x08;
    EXPECT_EQ(ComputeNVRAMDataChecksum(small.data(), 256), 0xFFFFFFF0u);
    EXPECT_EQ(small[255], 0xF0);
    EXPECT_EQ(CoreIsValidNvram(small.data(), 256), 1u);
    small[7] = 1;
    EXPECT_EQ(CoreIsValidNvram(small.data(), 256), 0u);

    // 512 bytes: words 0-126, the negation at byte 508.
    for (size_t i = 0; i < 508; ++i) img[i] = uint8_t(i * 7 + 3);
    const uint32_t sum = ComputeNVRAMDataChecksum(img.data(), 512);
    EXPECT_EQ(sum, uint32_t(img[508] | img[509] << 8 | img[510] << 16 | uint32_t(img[511]) << 24));
    EXPECT_EQ(CoreIsValidNvram(img.data(), 512), 1u);
    const std::vector<uint8_t> valid = img;
    ComputeNVRAMDataChecksum(img.data(), 512);
    EXPECT_EQ(img, valid);  // a valid image is unchanged
    EXPECT_EQ(CoreIsValidNvram(img.data(), 300), 0u);
}

TEST(SupportedDataRate, MaskBitsAndTheMinimumSpeedBoard) {
    SDMDevice d{};
    d.DevicePortProperty.SupportedSpeed = SD_SUPPORTED_16G | SD_SUPPORTED_32G;
    EXPECT_EQ(GetSupportedDataRateSetting(&d, 5), 1u);
    EXPECT_EQ(GetSupportedDataRateSetting(&d, 6), 1u);
    EXPECT_EQ(GetSupportedDataRateSetting(&d, 4), 0u);
    d.DevicePortProperty.SupportedSpeed = 0xFF;
    d.DeviceChipProperty.SubSystemID = 0x069E;
    EXPECT_EQ(GetSupportedDataRateSetting(&d, 3), 0u);
    EXPECT_EQ(GetSupportedDataRateSetting(&d, 4), 1u);
    d.DevicePortProperty.SupportedSpeed = 0;
    EXPECT_EQ(GetSupportedDataRateSetting(&d, 4), 0u);
}

// ------------------------------------------------------------ on a port

class HbaParams : public ConfigTest {};

// A change of one field through the API, then the value as a new process
// reads it.
struct Change {
    const char *field;
    uint32_t value;
};

std::string Field(const std::string &out, const std::string &name) {
    for (const std::string &line : vttest::Lines(out))
        if (line.rfind(name + "=", 0) == 0) return line.substr(name.size() + 1);
    return "?";
}

TEST_F(HbaParams, EverySupportedParameterChangesAndReadsBackInANewProcess) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    SDMDevice *d = Device(kKitePort0);
    // Every user parameter the 64 Gb port has, in an order the
    // cross-parameter rules allow.
    // clang-format off
    const Change changes[] = {
        {"DataRate", 6},         {"ConnectionOption", 1},     {"EnableFCTape", 0},      {"MaxLunsPerTarget", 64},
        {"EnableHardLoopID", 1}, {"HardLoopID", 7},           {"FrameSize", 1024},      {"EnableLipFullLogin", 0},
        {"EnableTargetReset", 0}, {"LoopResetDelay", 10},     {"LoginRetryCount", 20},  {"LinkDownTimeout", 60},
        {"PortDownRetryCount", 15}, {"ExecutionThrottle", 256}, {"OperationMode", 5},   {"InterruptDelayTimer", 3},
        {"DisableBIOS", 0},      {"EnableLR", 1},             {"EnableSelectableBoot", 1}, {"FabricAssignWWN", 1},
        {"FabricAssignBootLun", 1}, {"EnableDPort", 1},       {"DistanceSupport", 1},   {"MinimumSpeed", 1},
        {"PreferFCP", 1},        {"DisableSCM", 1},           {"SelectiveLogin", 1},    {"SelectiveLun", 1},
        {"ForceWorldLogin", 1},  {"NVMeEnable", 1},           {"PortDisable", 1},       {"FabricPriority", 1},
    };
    // clang-format on
    auto get = [] {
        auto r = vttest::Run({vttest::BuildPath("tests/nvram_params"), "get", kKitePort0});
        EXPECT_EQ(r.status, 0) << r.err;
        return vttest::Lines(r.out);
    };
    std::vector<std::string> before = get();
    for (const Change &c : changes) {
        SCOPED_TRACE(c.field);
        auto r = vttest::Run({vttest::BuildPath("tests/nvram_params"), "set", kKitePort0,
                              std::string(c.field) + "=" + std::to_string(c.value)});
        ASSERT_EQ(r.status, 0) << r.out << r.err;
        EXPECT_EQ(r.out, "status 0 0\n");
        // A new process reads the new value, and nothing else moved.
        const std::vector<std::string> after = get();
        ASSERT_EQ(after.size(), before.size());
        std::vector<std::string> moved;
        for (size_t i = 0; i < after.size(); ++i)
            if (after[i] != before[i]) moved.push_back(after[i]);
        EXPECT_EQ(moved, std::vector<std::string>{std::string(c.field) + "=" + std::to_string(c.value)});
        before = after;
        const std::vector<uint8_t> img = Nvram(d);
        EXPECT_EQ(CoreIsValidNvram(img.data(), uint32_t(img.size())), 1u);
    }
    // All the changes hold together, and the port names did not move.
    auto r = vttest::Run({vttest::BuildPath("tests/nvram_params"), "get", kKitePort0});
    for (const Change &c : changes) EXPECT_EQ(Field(r.out, c.field), std::to_string(c.value)) << c.field;
    const std::vector<uint8_t> img = Nvram(d);
    for (uint32_t i = 0; i < 8; ++i) EXPECT_EQ(Var(d, img, 24 + i), port->WWPN[i]);

    // In this process too, through the API; and it verifies.
    VTAPI_HBAParams p{};
    ASSERT_EQ(VTAPI_GetHBAParamsInfo(port, &p), VTAPI_SUCCESS);
    EXPECT_EQ(p.FrameSize, 1024u);
    EXPECT_EQ(p.HardLoopID, 7u);
    EXPECT_EQ(VTAPI_PostVerifyHBAParameter(port), VTAPI_SUCCESS);
}

TEST_F(HbaParams, ParametersThePortDoesNotHaveAreRefusedByName) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    SDMDevice *d = Device(kKitePort0);
    const std::vector<uint8_t> before = Nvram(d);
    const std::pair<Change, const char *> refused[] = {
        {{"EnableExtendedLogging", 1}, "HBA parameter EnableExtendedLogging is not supported with HBA 0 (VT2912)!"},
        {{"EnableLipReset", 1}, "HBA parameter EnableLipReset is not supported with HBA 0 (VT2912)!"},
        {{"ReceiveOutOfOrderFrame", 1},
         "HBA parameter EnableReceiveOutOfOrderFrame is not supported with HBA 0 (VT2912)!"},
        {{"VirtualLane", 1}, "Virtual lane feature is unsupported with current driver!"},
    };
    for (const auto &[c, message] : refused) {
        VTAPI_HBAParams p = Params(kKitePort0);
        if (std::string(c.field) == "EnableExtendedLogging") p.EnableExtendedLogging = c.value;
        if (std::string(c.field) == "EnableLipReset") p.EnableLipReset = c.value;
        if (std::string(c.field) == "ReceiveOutOfOrderFrame") p.ReceiveOutOfOrderFrame = c.value;
        if (std::string(c.field) == "VirtualLane") p.VirtualLane = uint8_t(c.value);
        EXPECT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_FILE_CORRUPTED) << c.field;
        EXPECT_EQ(Error(), message);
    }
    EXPECT_EQ(Nvram(d), before);

    // The command-line path: names the record has no field for.
    InitializeParamTable();
    AddUserNVRAMConfig("DescendingLoopIDSearch", 1);
    EXPECT_EQ(UpdateUserNVRAMConfig(d, User_NVRam_Entry, 0), 61u);
    EXPECT_EQ(Error(), "Selected HBA parameter DescendingLoopIDSearch is only available with 2G HBAs!");
    InitializeParamTable();
    AddUserNVRAMConfig("VL", 1);
    EXPECT_EQ(UpdateUserNVRAMConfig(Device(kWrenPort), User_NVRam_Entry, 0), 61u);
    EXPECT_EQ(Error(), "Virtual lane feature is unsupported with HBA 2 (VT2516)!");
    // The converged port's data rate, connection option and throttle are
    // read-only; its data rate reads as 16 Gb/s.
    InitializeParamTable();
    AddUserNVRAMConfig("ET", 100);
    EXPECT_EQ(UpdateUserNVRAMConfig(Device(kFcoePort), User_NVRam_Entry, 0), 61u);
    EXPECT_EQ(Error(), "HBA parameter ExecutionThrottle is not supported with HBA 5 (VT1812)!");
    EXPECT_EQ(Params(kFcoePort).DataRate, 5u);
    EXPECT_EQ(Nvram(d), before);
}

TEST_F(HbaParams, CrossParameterRulesAndTheirMessages) {
    Start();
    SDMDevice *d = Device(kKitePort0);
    const std::vector<uint8_t> before = Nvram(d);
    struct Case {
        std::vector<std::pair<const char *, int32_t>> request;
        uint32_t status;
        const char *message;
    };
    const Case cases[] = {
        {{{"CO", 0}, {"DR", 5}}, 48, "Connection Option of Loop Only and Data Rate of 16Gbit/s is not supported!"},
        {{{"ConnectionOption", 0}, {"DataRate", 6}},
         48,
         "Connection Option of Loop Only and Data Rate of 32Gbit/s is not supported!"},
        {{{"HD", 9}}, 48, "Invalid input, hard loop ID setting is not allowed when hard loop ID option is disabled)!"},
        {{{"HL", 0}, {"HD", 9}},
         48,
         "Invalid input, hard loop ID setting is not allowed when hard loop ID option is disabled)!"},
        {{{"ID", 9}}, 48, "Unable to change Interrupt Delay setting to 9 with current Operation Mode set to 0"},
        {{{"DR", 4}}, 48, "Invalid HBA parameter setting for HBA 0 (DataRate=4)!"},
        {{{"FR", 4096}}, 48, "Invalid input, FC frame size value must be 512, 1024,2048 or 2112!"},
        {{{"EO", 1}}, 61, "HBA parameter EnableReceiveOutOfOrderFrame is not supported with HBA 0 (VT2912)!"},
    };
    for (const Case &c : cases) {
        InitializeParamTable();
        for (const auto &[name, value] : c.request) AddUserNVRAMConfig(name, value);
        EXPECT_EQ(UpdateUserNVRAMConfig(d, User_NVRam_Entry, 0), c.status) << c.message;
        EXPECT_EQ(Error(), c.message);
    }
    EXPECT_EQ(Nvram(d), before);
    // Where the port has it, EnableReceiveOutOfOrderFrame is refused
    // without a message of its own.
    InitializeParamTable();
    AddUserNVRAMConfig("EO", 1);
    EXPECT_EQ(UpdateUserNVRAMConfig(Device(vttest::kIsp8GbPort), User_NVRam_Entry, 0), 48u);
    EXPECT_EQ(Error(), "");
    // Allowed together, in one request.
    InitializeParamTable();
    for (auto [name, value] : {std::pair{"HL", 1}, {"HD", 9}, {"OM", 6}, {"ID", 4}, {"CO", 0}, {"DR", 7}})
        AddUserNVRAMConfig(name, value);
    EXPECT_EQ(UpdateUserNVRAMConfig(d, User_NVRam_Entry, 1), 0u);  // validating only writes nothing
    EXPECT_EQ(Nvram(d), before);
    EXPECT_EQ(UpdateUserNVRAMConfig(d, User_NVRam_Entry, 0), 0u);
    const std::vector<uint8_t> after = Nvram(d);
    EXPECT_EQ(Var(d, after, 32), 9u);
    EXPECT_EQ(Var(d, after, 53), 4u);
    EXPECT_EQ(Var(d, after, 57), 7u);
    EXPECT_EQ(Var(d, after, 44), 0u);
    EXPECT_TRUE(vt::config::RebootRequired());
    EXPECT_EQ(vt::config::ConfigCompletionText(d),
              "HBA Parameters update complete. Changes have been saved to HBA 0 and a reboot is required.");
    InitializeParamTable();
    AddUserNVRAMConfig("LoginRetryCount", 3);
    EXPECT_EQ(UpdateUserNVRAMConfig(d, User_NVRam_Entry, 0), 0u);
    EXPECT_FALSE(vt::config::RebootRequired());
    EXPECT_EQ(vt::config::ConfigCompletionText(d), "HBA Parameters update complete. Changes have been saved to HBA 0.");
    EXPECT_TRUE(Logged("UpdateUserNVRAMConfig: User Param Name=LoginRetryCount Value=3"));
    EXPECT_TRUE(Logged("UpdateUserNVRAMConfig: Return 0"));
}

TEST_F(HbaParams, LockedPortAndWriteFaultLeaveTheNvramAlone) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    SDMDevice *d = Device(kKitePort0);
    const std::vector<uint8_t> before = Nvram(d);
    VTAPI_HBAParams p = Params(kKitePort0);
    p.LoginRetryCount = 42;

    ASSERT_EQ(Sim({"flags", "0", "lockdown=on"}), 0);
    EXPECT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_MAINTENANCE_MODE);
    EXPECT_EQ(Error(), "Unable to apply new settings to HBA HBA 0 (VT2912). Change is not permitted!");
    EXPECT_EQ(Nvram(d), before);
    ASSERT_EQ(Sim({"flags", "0", "lockdown=off", "maintenance=on"}), 0);
    EXPECT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_MAINTENANCE_MODE);
    EXPECT_EQ(Error(), "Command not supported when adapter port in maintenance mode (HBA 0 - VT2912)!");
    EXPECT_EQ(Nvram(d), before);
    ASSERT_EQ(Sim({"flags", "0", "maintenance=off"}), 0);

    ASSERT_EQ(Sim({"nvram", "0", "write-faults", "1"}), 0);
    EXPECT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(Error(), "Failed to update HBA parameters of selected HBA 0!");
    EXPECT_EQ(Nvram(d), before);
    EXPECT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_SUCCESS);
    EXPECT_EQ(Params(kKitePort0).LoginRetryCount, 42u);

    // A virtual port has no NVRAM of its own.
    InitializeParamTable();
    AddUserNVRAMConfig("LR", 1);
    EXPECT_EQ(UpdateUserNVRAMConfig(Device(kKiteVport), User_NVRam_Entry, 0), 286u);
    EXPECT_EQ(Error(), "Ignored virtual HBA (21:04:00:24:ff:7c:50:10)!");
    VTAPI_HBAParams vp{};
    EXPECT_EQ(VTAPI_GetHBAParamsInfo(Entry(kKiteVport), &vp), VTAPI_FILE_CORRUPTED);
}

TEST_F(HbaParams, ReadFaultDamagedImageAndPostVerify) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    VTAPI_HBAParams p{};
    ASSERT_EQ(Sim({"nvram", "0", "read-faults", "1"}), 0);
    EXPECT_EQ(VTAPI_GetHBAParamsInfo(port, &p), VTAPI_FILE_CORRUPTED);
    EXPECT_TRUE(Logged("GetHBAParamsInfo: Error=0x2000006a (Input/output error in the device-management library)"));
    ASSERT_EQ(VTAPI_GetHBAParamsInfo(port, &p), VTAPI_SUCCESS);
    EXPECT_TRUE(Logged("GetHBAParamsInfo: Frame Size=2048"));
    EXPECT_TRUE(Logged("GetHBAParamsInfo: EnableLipFullLogin=1"));

    // What was read verifies; a change behind the library's back does not.
    EXPECT_EQ(VTAPI_PostVerifyHBAParameter(port), VTAPI_SUCCESS);
    auto r = vttest::Run({vttest::BuildPath("tests/nvram_params"), "set", kKitePort0, "LoginRetryCount=9"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(VTAPI_PostVerifyHBAParameter(port), VTAPI_FILE_CORRUPTED);
    ASSERT_EQ(VTAPI_GetHBAParamsInfo(port, &p), VTAPI_SUCCESS);
    EXPECT_EQ(VTAPI_PostVerifyHBAParameter(port), VTAPI_SUCCESS);

    // A damaged image is not read, nor changed piecemeal.
    ASSERT_EQ(Sim({"nvram", "0", "corrupt"}), 0);
    EXPECT_EQ(VTAPI_GetHBAParamsInfo(port, &p), VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(Error(), "Unable to retrieve HBA parameters of HBA 0 (VT2912)!");
    p.LoginRetryCount = 11;
    EXPECT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_FILE_CORRUPTED);
}

TEST_F(HbaParams, PortLookupResults) {
    Start();
    VTAPI_HBAParams p{};
    EXPECT_EQ(VTAPI_GetHBAParamsInfo(nullptr, &p), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_UpdateHBAParameters(nullptr, &p), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_PostVerifyHBAParameter(nullptr), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    // A record that matches no entry: success, deliberately, and nothing filled.
    ProtocolEntry stray = *Entry(kKitePort0);
    stray.WWPN[7] ^= 0xFF;
    p.FrameSize = 77;
    EXPECT_EQ(VTAPI_GetHBAParamsInfo(&stray, &p), VTAPI_SUCCESS);
    EXPECT_EQ(p.FrameSize, 77u);
    EXPECT_EQ(VTAPI_UpdateHBAParameters(&stray, &p), VTAPI_SUCCESS);
    // An unchanged record writes nothing and succeeds.
    SDMDevice *d = Device(kKitePort0);
    const std::vector<uint8_t> before = Nvram(d);
    VTAPI_HBAParams same = Params(kKitePort0);
    ASSERT_EQ(Sim({"flags", "0", "lockdown=on"}), 0);
    EXPECT_EQ(VTAPI_UpdateHBAParameters(Entry(kKitePort0), &same), VTAPI_SUCCESS);
    EXPECT_EQ(Nvram(d), before);
}

// Chips 25 and 27 whose driver reports no supported speeds: the data-rate
// field carries the default supported-speed mask; a later board match wins.
TEST_F(HbaParams, DefaultSpeedMaskWithoutDriverSpeeds) {
    auto card = [](const char *serial, const char *did, const char *ssdid, int bus) {
        return std::string(R"({"serial":")") + serial + R"(","model":"M","device_id":")" + did +
               R"(","subsystem_id":")" + ssdid + R"(","pci_bus":)" + std::to_string(bus) +
               R"(,"driver":{"reports_supported_speed":false},"ports":[{"wwnn":"20:00:00:00:00:00:00:)" +
               std::to_string(10 + bus) + R"(","wwpn":"21:00:00:00:00:00:00:)" + std::to_string(10 + bus) + R"("}]})";
    };
    Start(std::string(R"({"cards":[)") + card("A", "0x6A10", "0x0A16", 1) + "," + card("B", "0x6A20", "0x0A21", 2) +
          "," + card("C", "0x6A20", "0x0B6E", 3) + "," + card("D", "0x6A10", "0x0A6E", 4) + "," +
          card("E", "0x7C50", "0x0C60", 5) + "," + card("F", "0x5380", "0x0201", 6) + "]}");
    EXPECT_EQ(Params("21:00:00:00:00:00:00:11").DataRate, 56u);   // 16 Gb
    EXPECT_EQ(Params("21:00:00:00:00:00:00:12").DataRate, 112u);  // 32 Gb family
    EXPECT_EQ(Params("21:00:00:00:00:00:00:13").DataRate, 64u);   // 32 Gb mezzanine
    EXPECT_EQ(Params("21:00:00:00:00:00:00:14").DataRate, 32u);   // 16 Gb mezzanine
    EXPECT_EQ(Params("21:00:00:00:00:00:00:15").DataRate, 56u);   // chip 27
    EXPECT_EQ(Params("21:00:00:00:00:00:00:16").DataRate, 2u);    // chip 12: as the NVRAM holds it
    // Such a port takes no fixed rate, only auto.
    InitializeParamTable();
    AddUserNVRAMConfig("DataRate", 5);
    EXPECT_EQ(UpdateUserNVRAMConfig(Device("21:00:00:00:00:00:00:15"), User_NVRam_Entry, 0), 48u);
    InitializeParamTable();
    AddUserNVRAMConfig("DataRate", 2);
    EXPECT_EQ(UpdateUserNVRAMConfig(Device("21:00:00:00:00:00:00:15"), User_NVRam_Entry, 0), 0u);
}

// A converged chip of type 15 always reads connection option 1.
TEST_F(HbaParams, ConnectionOptionOfChipType15) {
    Start("", "nvram_templates.json");
    EXPECT_EQ(Params("21:00:00:0e:1e:18:00:01").ConnectionOption, 1u);
    EXPECT_TRUE(Logged("GetHBAParamsInfo: Overriding current Connection Option (2) to 1"));
}

// A change the port applies only at its next reset says so, and the port
// changes when it is reset.
TEST_F(HbaParams, RebootRequiredUntilThePortIsReset) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    VTAPI_HBAParams p = Params(kKitePort0);
    p.DataRate = 6;
    ASSERT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_SUCCESS);
    uint32_t state = 9;
    ASSERT_EQ(VTAPI_IsRebootRequired(0, 0, &state), VTAPI_SUCCESS);
    EXPECT_EQ(state, 1u);
    SDPortProperty prop{};
    ASSERT_EQ(VTAPI_GetHbaDevicePortProperty(0, 0, &prop), VTAPI_SUCCESS);
    EXPECT_EQ(prop.PortSpeed, uint32_t(SD_SPEED_64G));
    ASSERT_EQ(Sim({"port-reset", "0"}), 0);
    ASSERT_EQ(VTAPI_IsRebootRequired(0, 0, &state), VTAPI_SUCCESS);
    EXPECT_EQ(state, 0u);
    ASSERT_EQ(VTAPI_GetHbaDevicePortProperty(0, 0, &prop), VTAPI_SUCCESS);
    EXPECT_EQ(prop.PortSpeed, uint32_t(SD_SPEED_32G));
}

// The Linux backend has no NVRAM interface: the worker says so plainly.
TEST_F(HbaParams, LinuxBackendSaysNotSupported) {
    const std::string tree = root_.root();
    auto r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "export-sysfs", tree},
                         {"VTSDM_HOST=" + vttest::BuildPath("data/default_host.json")});
    ASSERT_EQ(r.status, 0) << r.err;
    setenv("VTSDM_BACKEND", "linux", 1);
    Start();
    SDMDevice *d = GetDeviceList()->First;
    ASSERT_NE(d, nullptr);
    VTAPI_HBAParams p{};
    EXPECT_EQ(GetHBAParamsInfo(d, &p, nullptr, 0), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(Error().rfind("Operation is not supported with current HBA 0 (", 0), 0u) << Error();
    EXPECT_TRUE(Logged("GetHBAParamsInfo: Error=0x20000066 (Not supported on this adapter's driver)"));
    VTAPI_BootDeviceInfo b{};
    EXPECT_EQ(GetBootDeviceInfo(d, &b, 1), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SaveSingleAdapterNVRAMToBinaryFile(d, root_.path("/n.bin").c_str()), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(Error(), "Unable to save current HBA Parameters of this HBA 0 to " + root_.path("/n.bin") + "!");
}

// The rows the -c display walks: only what the port has, coded values with
// their meaning, and EnableBIOS as the inverse of the stored switch.
TEST_F(HbaParams, ReportRowsFollowThePortAndTheRecord) {
    Start();
    SDMDevice *d = Device(kKitePort0);
    VTAPI_HBAParams p = Params(kKitePort0);
    p.DataRate = 4;
    p.ConnectionOption = 2;
    p.OperationMode = 6;
    p.DisableBIOS = 1;
    p.FrameSize = 2048;
    auto rows = [&](const SDMDevice *device) {
        std::map<std::string, std::string> byElement;
        for (const vt::config::ReportRow &r : vt::config::HBAParamsReport(device, p)) {
            EXPECT_FALSE(r.label.empty()) << r.element;
            EXPECT_TRUE(byElement.emplace(r.element, r.value).second) << "twice: " << r.element;
        }
        return byElement;
    };
    const auto kite = rows(d);
    EXPECT_EQ(kite.at("DataRate"), "4 - 8 Gb/s");
    EXPECT_EQ(kite.at("ConnectionOption"), "2 - Loop Preferred, Otherwise Point-to-Point");
    EXPECT_EQ(kite.at("OperationMode"), "6 - Interrupt when Interrupt Delay Timer expires or no active I/O");
    EXPECT_EQ(kite.at("EnableBIOS"), "Disabled");
    EXPECT_EQ(kite.at("FrameSize"), "2048");
    // Rows the 64 Gb port lacks, and the two never shown.
    for (const char *absent : {"EnableExtendedLogging", "EnableLipReset", "EnableReceiveOutOfOrderFrame",
                               "LinkDownError", "FastErrorReporting"})
        EXPECT_EQ(kite.count(absent), 0u) << absent;
    p.DisableBIOS = 0;
    EXPECT_EQ(rows(d).at("EnableBIOS"), "Enabled");
    // The 8 Gb port shows the out-of-order switch and none of the later ones.
    p.ReceiveOutOfOrderFrame = 1;
    const auto older = rows(Device(vttest::kIsp8GbPort));
    EXPECT_EQ(older.at("EnableReceiveOutOfOrderFrame"), "Enabled");
    EXPECT_EQ(older.count("PreferFCP"), 0u);
    EXPECT_EQ(older.count("NVMeEnable"), 0u);
}

}  // namespace

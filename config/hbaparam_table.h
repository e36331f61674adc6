// The HBA parameters as data: the 39 user parameters (name, alias, the
// NVRAM variable behind each, the values it takes, the message a refused
// value gets, which ports have it, whether a change waits for a reboot, and
// the field of the HBA-parameters record that carries it), the fields of the
// record with the variable each is read from and when it is read, and the
// eight FCP boot drives.  Everything that reads, checks or writes HBA
// parameters works from these tables.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vtapi_api.h"

namespace vt::config {

inline constexpr int kParamCount = 39;
inline constexpr int32_t kNoVariable = -1;

// How ValidateParamValue judges a value.
enum class ValueRule : uint8_t {
    Range,          // low..high
    OneOf,          // one of `values`
    RefusedByName,  // never gets here: the name is refused first
    AlwaysRefused,  // every value refused, without a message of its own
};

// Which ports have a parameter, by chip type code.
enum class Support : uint8_t {
    All,
    ChipAbove1,  // code above 1
    Below4Gb,    // codes below 8 (gone from 4 Gb and later adapters)
    Only4Or8Gb,  // codes 8-12
    Only2Gb,     // codes 2-7: "only available with 2G HBAs"
    Chip24Up,    // 16 Gb generation and later
    Chip25Up,
    ChipAbove24,
    Distance,     // code 25 or above 26
    VirtualLane,  // code 27, with a driver that has the feature
    Never,        // refused by name
};

// Where a value sits in VTAPI_HBAParams; size 0 for a parameter without a
// field.  `inverted`: the field (and the NVRAM) hold the opposite switch.
struct RecordField {
    uint16_t offset;
    uint8_t size;
    bool inverted;
};

struct ParamRow {
    const char *alias;       // as stored in User_NVRam_Entry
    const char *parseAlias;  // as the name parser accepts it
    const char *name;
    int32_t variable;  // NVRAM variable identifier, or kNoVariable
    ValueRule rule;
    int32_t low, high;  // Range
    int32_t values[7];  // OneOf, `count` of them
    uint8_t count;
    const char *message;  // stored when ValidateParamValue refuses
    bool words;           // "Enable"/"Disable" may stand for 1/0
    Support support;
    bool readOnlyOnConverged;  // refused on converged (FCoE) adapters
    bool needsReboot;          // a change takes effect at the next reset
    RecordField field;
};

#define VT_FIELD(f) \
    RecordField { offsetof(VTAPI_HBAParams, f), sizeof(VTAPI_HBAParams::f), false }
#define VT_FIELD_INVERTED(f) \
    RecordField { offsetof(VTAPI_HBAParams, f), sizeof(VTAPI_HBAParams::f), true }
#define VT_NO_FIELD \
    RecordField { 0, 0, false }
#define VT_SWITCH(alias, name, var, message, support, reboot, field) \
    ParamRow { alias, alias, name, var, ValueRule::Range, 0, 1, {}, 0, message, true, support, false, reboot, field }
#define VT_RANGE(alias, name, var, lo, hi, message, words, support, conv, reboot, field) \
    ParamRow { alias, alias, name, var, ValueRule::Range, lo, hi, {}, 0, message, words, support, conv, reboot, field }

inline constexpr const char kFcNvmeMessage[] = "Invalid input, FC NVMe enable option must be 0 or 1!";
inline constexpr const char kLrMessage[] = "Invalid input, LR support enable option must be 0 or 1!";
inline constexpr const char kNameValueMessage[] = "Invalid HBA parameter name/value!";

// The 39 rows, in their fixed order.  Kept as they are: DataRate takes 0-7
// although its message says 0 to 5, ExecutionThrottle takes 0 although its
// message says 1, EnableDistanceSupport shares the LR message, PortDisable
// and FabricPriority share the FC NVMe message, row 36's stored alias is
// "PD" like row 15's while the parser knows it as "PS".
// clang-format off
inline constexpr ParamRow kParamRows[kParamCount] = {
    VT_RANGE("DR", "DataRate", 57, 0, 7, "Invalid input, data rate must be from 0 to 5!", false,
             Support::ChipAbove1, true, true, VT_FIELD(DataRate)),
    VT_RANGE("CO", "ConnectionOption", 44, 0, 3,
             "Invalid input, connection option must be from 0 to 2 (From 0 to 3 for 1Gb HBA)!", false, Support::All,
             true, true, VT_FIELD(ConnectionOption)),
    VT_SWITCH("EF", "EnableFCTape", 48, "Invalid input, FC tape support enable option must be 0 or 1!", Support::All,
              false, VT_FIELD(EnableFCTape)),
    ParamRow{"ML", "ML", "MaximumLunsPerTarget", 83, ValueRule::OneOf, 0, 0, {0, 8, 16, 32, 64, 128, 256}, 7,
             "Maximum LUNs Per Target value must be 0,8,16,32,64,128 or 256!", false, Support::All, false, false,
             VT_FIELD(MaxLunsPerTarget)},
    VT_SWITCH("HL", "EnableHardLoopID", 3, "Invalid input, hardLoop ID enable option must be 0 or 1!", Support::All,
              true, VT_FIELD(EnableHardLoopID)),
    VT_RANGE("HD", "HardLoopID", 32, 0, 125, "Invalid input, hard lop ID value must be from 0 to 125!", false,
             Support::All, false, true, VT_FIELD(HardLoopID)),
    ParamRow{"FR", "FR", "FrameSize", 19, ValueRule::OneOf, 0, 0, {512, 1024, 2048, 2112}, 4,
             "Invalid input, FC frame size value must be 512, 1024,2048 or 2112!", false, Support::All, false, true,
             VT_FIELD(FrameSize)},
    VT_SWITCH("FL", "EnableLipFullLogin", 67, "Invalid input, lip full login enable option must be 0 or 1!",
              Support::All, false, VT_FIELD(EnableLipFullLogin)),
    VT_SWITCH("LP", "EnableLipReset", 66, "Invalid input, lip reset enable option must be 0 or 1!", Support::Below4Gb,
              false, VT_FIELD(EnableLipReset)),
    VT_SWITCH("TR", "EnableTargetReset", 68, "Invalid input, target reset enable option must be 0 or 1!",
              Support::All, false, VT_FIELD(EnableTargetReset)),
    VT_SWITCH("EL", "EnableExtendedLogging", 64,
              "Invalid input, extended error logging enable option must be 0 or 1!", Support::Below4Gb, false,
              VT_FIELD(EnableExtendedLogging)),
    VT_RANGE("RD", "ResetDelay", 81, 0, 255, "Invalid input, loop reset delay value must be from 0 to 255!", false,
             Support::All, false, false, VT_FIELD(LoopResetDelay)),
    VT_RANGE("LR", "LoginRetryCount", 22, 0, 255, "Invalid input, login retry count value must be from 0 to 255!",
             false, Support::All, false, false, VT_FIELD(LoginRetryCount)),
    VT_RANGE("LT", "LinkDownTimeout", 97, 0, 240, "Invalid input, link down time out value must be from 0 to 240!",
             false, Support::All, false, false, VT_FIELD(LinkDownTimeout)),
    ParamRow{"LD", "LD", "LinkDownError", kNoVariable, ValueRule::RefusedByName, 0, 0, {}, 0, kNameValueMessage, true,
             Support::Never, false, false, VT_NO_FIELD},
    VT_RANGE("PD", "PortDownRetryCount", 82, 0, 255, "Invalid input, port down retry value must be from 0 to 255!",
             false, Support::All, false, false, VT_FIELD(PortDownRetryCount)),
    VT_RANGE("ET", "ExecutionThrottle", 21, 0, 65535,
             "Invalid input, execution throttle value must be from 1 to 65535!", false, Support::All, true, false,
             VT_FIELD(ExecutionThrottle)),
    ParamRow{"FE", "FE", "FastErrorReporting", kNoVariable, ValueRule::RefusedByName, 0, 0, {}, 0, kNameValueMessage,
             true, Support::Never, false, false, VT_NO_FIELD},
    ParamRow{"OM", "OM", "OperationMode", 43, ValueRule::OneOf, 0, 0, {0, 5, 6}, 3,
             "Invalid input, operation mode value must be 0,5 or 6!", false, Support::ChipAbove1, false, false,
             VT_FIELD(OperationMode)},
    VT_RANGE("ID", "InterruptDelayTimer", 53, 0, 255,
             "Invalid input, interrupt delay timer value must be from 0 to 255!", false, Support::ChipAbove1, false,
             false, VT_FIELD(InterruptDelayTimer)),
    VT_SWITCH("EB", "EnableBIOS", 58, "Invalid input, legacy BIOS support enable option must be 0 or 1!",
              Support::All, false, VT_FIELD_INVERTED(DisableBIOS)),
    ParamRow{"EO", "EO", "EnableReceiveOutOfOrderFrame", 56, ValueRule::AlwaysRefused, 0, 0, {}, 0, nullptr, true,
             Support::Only4Or8Gb, false, false, VT_FIELD(ReceiveOutOfOrderFrame)},
    VT_SWITCH("DS", "DescendingLoopIDSearch", 4,
              "Invalid input, descending loop ID search enable option must be 0 or 1!", Support::Only2Gb, true,
              VT_NO_FIELD),
    VT_SWITCH("EE", "EnableLR", 133, kLrMessage, Support::ChipAbove24, true, VT_FIELD(EnableLR)),
    VT_SWITCH("ES", "EnableSelectableBoot", 60,
              "Invalid input, legacy BIOS selectable boot enable option must be 0 or 1!", Support::All, false,
              VT_FIELD(EnableSelectableBoot)),
    VT_SWITCH("FN", "EnableFabricAssignWWN", 130, "Invalid input, fabric assign WWN enable option must be 0 or 1!",
              Support::Chip24Up, true, VT_FIELD(FabricAssignWWN)),
    VT_SWITCH("FB", "EnableFabricAssignBootLun", 131,
              "Invalid input, fabric assign boot LUN enable option must be 0 or 1!", Support::Chip24Up, false,
              VT_FIELD(FabricAssignBootLun)),
    VT_SWITCH("DP", "EnableDPort", 132, "Invalid input, diagnostics port enable option must be 0 or 1!",
              Support::Chip24Up, true, VT_FIELD(EnableDPort)),
    VT_SWITCH("ED", "EnableDistanceSupport", 134, kLrMessage, Support::Distance, true, VT_FIELD(DistanceSupport)),
    VT_SWITCH("MS", "EnableMinSpeed", 135, "Invalid input, minimum speed enable option must be 0 or 1!",
              Support::Chip24Up, true, VT_FIELD(MinimumSpeed)),
    VT_SWITCH("PF", "PreferFCP", 136, "Invalid input, FCP prefer enable option must be 0 or 1!", Support::ChipAbove24,
              false, VT_FIELD(PreferFCP)),
    VT_SWITCH("EC", "EnableUSCM", 137, "Invalid input, uscm enable option must be 0 or 1!", Support::ChipAbove24,
              false, VT_FIELD_INVERTED(DisableSCM)),
    VT_SWITCH("SL", "EnableSelectiveLogin", 92, "Invalid input, selective login enable option must be 0 or 1!",
              Support::All, false, VT_FIELD(SelectiveLogin)),
    VT_SWITCH("LL", "EnableSelectiveLUN", 95, "Invalid input, selective LUN login enable option must be 0 or 1!",
              Support::All, false, VT_FIELD(SelectiveLun)),
    VT_SWITCH("WL", "ForceWorldLogin", 96, "Invalid input, world login enable option must be 0 or 1!", Support::All,
              false, VT_FIELD(ForceWorldLogin)),
    VT_SWITCH("NE", "NVMeEnable", 148, kFcNvmeMessage, Support::Chip24Up, true, VT_FIELD(NVMeEnable)),
    ParamRow{"PD", "PS", "PortDisable", 185, ValueRule::Range, 0, 1, {}, 0, kFcNvmeMessage, true, Support::Chip25Up,
             false, true, VT_FIELD(PortDisable)},
    VT_SWITCH("FP", "FabricPriority", 186, kFcNvmeMessage, Support::Chip25Up, true, VT_FIELD(FabricPriority)),
    VT_SWITCH("VL", "VirtualLane", 187, "Invalid input, virtual lane optionn must be 0 or 1!", Support::VirtualLane,
              true, VT_FIELD(VirtualLane)),
};
// clang-format on

// Row indexes the apply step refers to by name.
enum ParamIndex : int {
    kDataRateRow = 0,
    kConnectionOptionRow = 1,
    kEnableHardLoopIdRow = 4,
    kHardLoopIdRow = 5,
    kFrameSizeRow = 6,
    kLinkDownErrorRow = 14,
    kExecutionThrottleRow = 16,
    kFastErrorReportingRow = 17,
    kOperationModeRow = 18,
    kInterruptDelayRow = 19,
    kDescendingSearchRow = 22,
    kVirtualLaneRow = 38,
};

// Data-rate codes.
inline constexpr uint32_t kDataRateAuto = 2;
inline constexpr uint32_t kDataRate16G = 5;
inline constexpr uint32_t kDataRate32G = 6;

// ------------------------------------------------------------ the record

// When a record field is read, by chip type code (and image size).
enum class ReadWhen : uint8_t { Always, ChipAbove1, Not4Or8Gb, Only4Or8Gb, Chip25OrAbove26, ChipAbove24 };

struct RecordRow {
    const char *logName;  // "GetHBAParamsInfo: <logName>=%d"
    uint32_t variable;
    RecordField field;
    ReadWhen when;
};

// The record's fields in their order, with the variable each is read from.
// clang-format off
inline constexpr RecordRow kRecordRows[] = {
    {"Data Rate", 57, VT_FIELD(DataRate), ReadWhen::ChipAbove1},
    {"Connection Option", 44, VT_FIELD(ConnectionOption), ReadWhen::Always},
    {"Enable FC Tape", 48, VT_FIELD(EnableFCTape), ReadWhen::Always},
    {"Maximum LUNs Per Target", 83, VT_FIELD(MaxLunsPerTarget), ReadWhen::Always},
    {"Enable Hard Loop ID", 3, VT_FIELD(EnableHardLoopID), ReadWhen::Always},
    {"Hard Loop ID", 32, VT_FIELD(HardLoopID), ReadWhen::Always},
    {"Frame Size", 19, VT_FIELD(FrameSize), ReadWhen::Always},
    {"EnableLipReset", 66, VT_FIELD(EnableLipReset), ReadWhen::Always},
    {"EnableLipFullLogin", 67, VT_FIELD(EnableLipFullLogin), ReadWhen::Always},
    {"Enable Target Reset", 68, VT_FIELD(EnableTargetReset), ReadWhen::Always},
    {"Enable Extended Logging", 64, VT_FIELD(EnableExtendedLogging), ReadWhen::Always},
    {"Loop Reset Delay", 81, VT_FIELD(LoopResetDelay), ReadWhen::Always},
    {"Login Retry Count", 22, VT_FIELD(LoginRetryCount), ReadWhen::Always},
    {"Port Down Retry Count", 82, VT_FIELD(PortDownRetryCount), ReadWhen::Always},
    {"Execution Throttle", 21, VT_FIELD(ExecutionThrottle), ReadWhen::Always},
    {"Operation Mode", 43, VT_FIELD(OperationMode), ReadWhen::ChipAbove1},
    {"Interrupt Delay Timer", 53, VT_FIELD(InterruptDelayTimer), ReadWhen::ChipAbove1},
    {"Link Down Timeout", 97, VT_FIELD(LinkDownTimeout), ReadWhen::Always},
    {"Enable FC Confirm", 49, VT_FIELD(EnableFCConfirm), ReadWhen::Not4Or8Gb},
    {"Enable 64-bit Addressing", 6, VT_FIELD(Enable64BitAddressing), ReadWhen::Always},
    {"Enable Fast Command Posting", 65, VT_FIELD(EnableFastCommandPosting), ReadWhen::Always},
    {"Disable BIOS", 58, VT_FIELD(DisableBIOS), ReadWhen::Always},
    {"Enable Selectable Boot", 60, VT_FIELD(EnableSelectableBoot), ReadWhen::Always},
    {"Selective Login", 92, VT_FIELD(SelectiveLogin), ReadWhen::Always},
    {"Selective LUN", 95, VT_FIELD(SelectiveLun), ReadWhen::Always},
    {"World Login", 96, VT_FIELD(ForceWorldLogin), ReadWhen::Always},
    {"Receive Out Of Order Frame", 56, VT_FIELD(ReceiveOutOfOrderFrame), ReadWhen::Only4Or8Gb},
    {"Vendor ID", 125, VT_FIELD(VendorID), ReadWhen::Always},
    {"Device ID", 126, VT_FIELD(DeviceID), ReadWhen::Always},
    {"Subsystem Vendor ID", 127, VT_FIELD(SubsystemVendorID), ReadWhen::Always},
    {"Subsystem Device ID", 128, VT_FIELD(SubsystemDeviceID), ReadWhen::Always},
    {"Extended Firmware Options", 13, VT_FIELD(ExtendedFirmwareOptions), ReadWhen::Always},
    {"Enable LR", 133, VT_FIELD(EnableLR), ReadWhen::Always},
    {"Enable Fabric Assign WWN", 130, VT_FIELD(FabricAssignWWN), ReadWhen::Always},
    {"Enable Fabric Assign Boot LUN", 131, VT_FIELD(FabricAssignBootLun), ReadWhen::Always},
    {"Enable D-Port", 132, VT_FIELD(EnableDPort), ReadWhen::Always},
    {"Distance Support", 134, VT_FIELD(DistanceSupport), ReadWhen::Chip25OrAbove26},
    {"Minimum Speed", 135, VT_FIELD(MinimumSpeed), ReadWhen::Always},
    {"Prefer FCP", 136, VT_FIELD(PreferFCP), ReadWhen::ChipAbove24},
    {"Disable SCM", 137, VT_FIELD(DisableSCM), ReadWhen::ChipAbove24},
    {"NVMe Enable", 148, VT_FIELD(NVMeEnable), ReadWhen::Always},
    {"Port Disable", 185, VT_FIELD(PortDisable), ReadWhen::Always},
    {"Fabric Priority", 186, VT_FIELD(FabricPriority), ReadWhen::Always},
    {"Virtual Lane", 187, VT_FIELD(VirtualLane), ReadWhen::Always},
};
// clang-format on

#undef VT_FIELD
#undef VT_FIELD_INVERTED
#undef VT_NO_FIELD
#undef VT_SWITCH
#undef VT_RANGE

// FCP boot drives 0-7: the variable of the first of the eight target
// port-name bytes (most significant first) and of the 16-bit LUN.
struct BootDriveVariables {
    uint32_t portNameByte0;
    uint32_t lun;
};
// clang-format off
inline constexpr BootDriveVariables kBootDrives[8] = {
    {72, 80}, {98, 106}, {107, 115}, {116, 124}, {149, 157}, {158, 166}, {167, 175}, {176, 184},
};
// clang-format on
inline constexpr uint32_t kBootNodeNameByte0 = 84;  // 84-91, drive 0's node name

// NVRAM image size: 256 bytes below chip type code 8, else 512.
constexpr uint32_t NvramSizeForChip(uint32_t chipType) { return chipType < 8 ? 256 : 512; }
// FCP boot drives an image of that chip has: 4 in 256 bytes, else 8.
constexpr uint32_t BootDriveCount(uint32_t chipType) { return NvramSizeForChip(chipType) == 256 ? 4 : 8; }

constexpr bool Is4Or8Gb(uint32_t chipType) { return chipType >= 8 && chipType <= 12; }

constexpr bool ReadApplies(ReadWhen when, uint32_t chipType) {
    switch (when) {
    case ReadWhen::Always: return true;
    case ReadWhen::ChipAbove1: return chipType > 1;
    case ReadWhen::Not4Or8Gb: return !Is4Or8Gb(chipType);
    case ReadWhen::Only4Or8Gb: return Is4Or8Gb(chipType);
    case ReadWhen::Chip25OrAbove26: return chipType == 25 || chipType > 26;
    case ReadWhen::ChipAbove24: return chipType > 24;
    }
    return false;
}

// Whether a port of this chip type has the parameter (the converged and
// driver conditions aside).
constexpr bool ChipHasParam(Support support, uint32_t chipType) {
    switch (support) {
    case Support::All: return true;
    case Support::ChipAbove1: return chipType > 1;
    case Support::Below4Gb: return chipType < 8;
    case Support::Only4Or8Gb: return Is4Or8Gb(chipType);
    case Support::Only2Gb: return chipType >= 2 && chipType < 8;
    case Support::Chip24Up: return chipType >= 24;
    case Support::Chip25Up: return chipType >= 25;
    case Support::ChipAbove24: return chipType > 24;
    case Support::Distance: return chipType == 25 || chipType > 26;
    case Support::VirtualLane: return chipType == 27;
    case Support::Never: return false;
    }
    return false;
}

}  // namespace vt::config

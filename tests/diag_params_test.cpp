// The diagnostic parameter table: defaults per test mode, name lookup, the
// validation of every value with its message, the increment cross-check,
// and the request record built from the table.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "diag/diag.h"
#include "idtable.h"
#include "testutil.h"
#include "oss/oss.h"

namespace {

struct Row {
    uint32_t row;
    const char *value;
};

class DiagParams : public ::testing::Test {
protected:
    void SetUp() override {
        // The preference file lives in a private directory, without the
        // maximum-I/O switch unless a test writes it.
        UsePreferences("");
        InitializeUserDiagnosticsTable(DIAG_TEST_LOOPBACK);
    }
    void UsePreferences(const std::string &text) {
        vttest::WriteFile(dir_.file("tgcli.properties"), text);
        const std::string withSlash = dir_.path() + "/";
        TarnSetInstallationDir(withSlash.c_str(), int32_t(withSlash.size() + 1));
        TarnSetReferenceFile();
    }
    // Validates and stores each value; the request built for `mode`.
    DiagRequest Build(std::initializer_list<Row> rows, uint32_t mode = DIAG_TEST_LOOPBACK,
                      const SDMDevice *adapter = nullptr) {
        for (const Row &r : rows) {
            char message[256] = "";
            EXPECT_EQ(ValidateDiagnosticsParamValue(r.row, r.value, message, mode), 0u) << r.value << ": " << message;
            EXPECT_EQ(AddUserDiagnosticsData(r.row, r.value), 0u);
        }
        DiagRequest rq{};
        EXPECT_EQ(CopyUserDiagnosticsDataToDiagTable(adapter, &rq, mode), 0u);
        return rq;
    }
    // The message of a refused value ("" when it was accepted).
    static std::string Refusal(uint32_t row, const char *value, uint32_t mode = DIAG_TEST_LOOPBACK) {
        char message[256] = "";
        const uint32_t rc = ValidateDiagnosticsParamValue(row, value, message, mode);
        if (rc == 0) return "";
        EXPECT_EQ(rc, 48u) << value;
        return message;
    }

    vttest::SysrootScope root_;
    vttest::TempDir dir_;
};

SDMDevice DeviceOfIspType(uint32_t isp) {
    SDMDevice d{};
    d.DeviceChipProperty.DeviceID = *vt::ids::DeviceIdForIspType(isp);
    d.Instance = 3;
    return d;
}

TEST_F(DiagParams, DefaultsDependOnTheMode) {
    struct Case {
        uint32_t mode;
        uint32_t size;
        int32_t type;
    };
    for (const Case &c : {Case{0, 512, 0}, Case{1, 8, 1}, Case{2, 8, 2}, Case{3, 8, 3}, Case{4, 8, 4}, Case{5, 8, 5},
                          Case{6, 8, 2}, Case{9, 8, 2}}) {
        InitializeUserDiagnosticsTable(c.mode);
        DiagRequest rq{};
        ASSERT_EQ(CopyUserDiagnosticsDataToDiagTable(nullptr, &rq, DIAG_TEST_LOOPBACK), 0u);
        EXPECT_EQ(rq.DataSize, c.size) << "mode " << c.mode;
        EXPECT_EQ(rq.LoopbackType, c.type) << "mode " << c.mode;
        EXPECT_EQ(rq.TestCount, 10);
        EXPECT_EQ(rq.TestIncrement, 1);
        EXPECT_EQ(rq.OnError, 0);
        EXPECT_EQ(rq.PatternKind, VTAPI_DIAG_PATTERN_RANDOM);
        EXPECT_EQ(rq.Continuous, 0u);
    }
    EXPECT_STREQ(g_UserDiagnosticsTable[DIAG_ROW_DATA_PATTERN].Value, "Random");
    EXPECT_STREQ(g_UserDiagnosticsTable[DIAG_ROW_LOOPBACK_TYPE].Alias, "LT");
}

TEST_F(DiagParams, NamesAndAliasesInAnyCase) {
    EXPECT_EQ(ValidateDiagnosticsParamName("DataPattern"), 0u);
    EXPECT_EQ(ValidateDiagnosticsParamName("datasize"), 1u);
    EXPECT_EQ(ValidateDiagnosticsParamName("tc"), 2u);
    EXPECT_EQ(ValidateDiagnosticsParamName("TESTINCREMENT"), 3u);
    EXPECT_EQ(ValidateDiagnosticsParamName("Oe"), 4u);
    EXPECT_EQ(ValidateDiagnosticsParamName("LT"), 5u);
    EXPECT_EQ(ValidateDiagnosticsParamName("Loopback"), 0xFFFFFFFFu);
    EXPECT_EQ(ValidateDiagnosticsParamName(nullptr), 0xFFFFFFFFu);
}

TEST_F(DiagParams, EveryRefusalHasItsMessage) {
    const uint32_t rw = DIAG_TEST_READ_WRITE_BUFFER;
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_PATTERN, "xyz"), "Data Pattern value must be in hex!");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_PATTERN, ""), "Data Pattern value must be in hex!");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_PATTERN, "CRPAT", rw), "Data Pattern value must be in hex!");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_PATTERN, "cjtpat", rw), "Data Pattern value must be in hex!");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_PATTERN, "Random", rw), "");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_PATTERN, "cspat"), "");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_PATTERN, "5Azz"), "");  // only its start has to be hex

    const std::string loopbackSizes =
        "Data Size value must be 8,16,32,64,128,256,512,1024,2048,4096,8192,16384,"
        "32768 or 65535 bytes!";
    for (const char *bad : {"0", "7", "100", "65534", "65537", "abc", "-8", "8x"})
        EXPECT_EQ(Refusal(DIAG_ROW_DATA_SIZE, bad), loopbackSizes) << bad;
    for (const char *good : {"8", "2048", "65535", "65536", "0x20000", "2097512"})
        EXPECT_EQ(Refusal(DIAG_ROW_DATA_SIZE, good), "") << good;
    // The table keeps 19 characters of a value: a number written longer is
    // refused rather than cut to another number when stored.
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_SIZE, "0000000000000000016"), "");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_SIZE, "00000000000000000016"), loopbackSizes);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_SIZE, "0000000000000000016"}}).DataSize, 16u);
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_SIZE, "256", rw), "Data Size value must be 8,16,32,64 or 128 bytes!");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_SIZE, "128", rw), "");
    EXPECT_EQ(Refusal(DIAG_ROW_DATA_SIZE, "128", DIAG_TEST_ELS_ECHO),
              "Data Size value must be 256,512,1024 or 2048 bytes!");

    EXPECT_EQ(Refusal(DIAG_ROW_TEST_COUNT, "65536"), "Test Count value must be 0-65535!");
    EXPECT_EQ(Refusal(DIAG_ROW_TEST_COUNT, "0"), "");
    EXPECT_EQ(Refusal(DIAG_ROW_TEST_COUNT, "0", DIAG_MENU_MODE), "Test count value must be from 1 to 65535!");
    EXPECT_EQ(Refusal(DIAG_ROW_TEST_COUNT, "10001", rw), "Test count value must be from 0 to 10000!");
    EXPECT_EQ(Refusal(DIAG_ROW_TEST_COUNT, "0", rw | DIAG_MENU_MODE), "Test count value must be from 1 to 10000!");
    EXPECT_EQ(Refusal(DIAG_ROW_TEST_COUNT, "10000", rw), "");

    EXPECT_EQ(Refusal(DIAG_ROW_TEST_INCREMENT, "65536"), "Test Increment value must be 1-65535!");
    EXPECT_EQ(Refusal(DIAG_ROW_TEST_INCREMENT, "0"), "Test Increment value must be 1-65535!");
    EXPECT_EQ(Refusal(DIAG_ROW_TEST_INCREMENT, "10001", rw), "Test increment value must be from 1 to 10000!");

    for (const char *bad : {"3", "-1", "stop"})
        EXPECT_EQ(Refusal(DIAG_ROW_ON_ERROR, bad), "Error value must be 0 (Ignore), 1 (Stop) or 2 (Loop)!");
    EXPECT_EQ(Refusal(DIAG_ROW_ON_ERROR, "2"), "");

    EXPECT_EQ(Refusal(DIAG_ROW_LOOPBACK_TYPE, "6"), "Invalid diagnostics loopback type (6)!");
    EXPECT_EQ(Refusal(DIAG_ROW_LOOPBACK_TYPE, "4"), "");

    char message[256] = "";
    EXPECT_EQ(ValidateDiagnosticsParamValue(6, "42", message, DIAG_TEST_LOOPBACK), 60u);
    EXPECT_STREQ(message, "Invalid diagnostics option (42)!");
    EXPECT_EQ(AddUserDiagnosticsData(6, "1"), 60u);
}

TEST_F(DiagParams, MaximumIoLoopbackOnlyWithItsPreference) {
    EXPECT_EQ(Refusal(DIAG_ROW_LOOPBACK_TYPE, "5"), "Invalid diagnostics loopback type (5)!");
    UsePreferences("node.hba.diagnostics.maxio.enable=1\n");
    EXPECT_EQ(Refusal(DIAG_ROW_LOOPBACK_TYPE, "5"), "");
    const DiagRequest rq = Build({{DIAG_ROW_LOOPBACK_TYPE, "5"}});
    EXPECT_EQ(rq.LoopbackType, 5);
    EXPECT_EQ(rq.DataIntegrityCheck, 1u);
    EXPECT_EQ(Build({{DIAG_ROW_LOOPBACK_TYPE, "2"}}).DataIntegrityCheck, 0u);
}

TEST_F(DiagParams, IncrementMustStayBelowTheCount) {
    char message[256] = "";
    Build({{DIAG_ROW_TEST_COUNT, "10"}, {DIAG_ROW_TEST_INCREMENT, "9"}});
    EXPECT_EQ(CompareUserDiagParamValue(message), 0u);
    Build({{DIAG_ROW_TEST_INCREMENT, "10"}});
    EXPECT_EQ(CompareUserDiagParamValue(message), 48u);
    EXPECT_STREQ(message, "Test Increment value must be less than Test Count value!");
    // A test without end takes any increment.
    Build({{DIAG_ROW_TEST_COUNT, "0"}, {DIAG_ROW_TEST_INCREMENT, "500"}});
    EXPECT_EQ(CompareUserDiagParamValue(message), 0u);
}

TEST_F(DiagParams, PatternsFromTheTable) {
    // Only the first two hex digits count.
    DiagRequest rq = Build({{DIAG_ROW_DATA_PATTERN, "5A77"}});
    EXPECT_EQ(rq.PatternKind, VTAPI_DIAG_PATTERN_BYTE);
    for (uint8_t b : rq.Pattern) EXPECT_EQ(b, 0x5A);
    rq = Build({{DIAG_ROW_DATA_PATTERN, "7"}});
    for (uint8_t b : rq.Pattern) EXPECT_EQ(b, 0x07);

    rq = Build({{DIAG_ROW_DATA_PATTERN, "0102030405a6b7c8"}});
    EXPECT_EQ(rq.PatternKind, VTAPI_DIAG_PATTERN_USER);
    const uint8_t user[8] = {1, 2, 3, 4, 5, 0xa6, 0xb7, 0xc8};
    EXPECT_EQ(memcmp(rq.Pattern, user, 8), 0);
    // Anything else that starts with hex is the byte of its first two digits.
    rq = Build({{DIAG_ROW_DATA_PATTERN, "0102030405a6b7c"}});
    EXPECT_EQ(rq.PatternKind, VTAPI_DIAG_PATTERN_BYTE);
    for (uint8_t b : rq.Pattern) EXPECT_EQ(b, 0x01);

    EXPECT_EQ(Build({{DIAG_ROW_DATA_PATTERN, "CRPAT"}}).PatternKind, VTAPI_DIAG_PATTERN_CRPAT);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_PATTERN, "CJTPAT"}}).PatternKind, VTAPI_DIAG_PATTERN_CJTPAT);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_PATTERN, "CSPAT"}}).PatternKind, VTAPI_DIAG_PATTERN_CSPAT);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_PATTERN, "random"}}).PatternKind, VTAPI_DIAG_PATTERN_RANDOM);
}

TEST_F(DiagParams, RandomPatternIsSeededWithProcessAndTime) {
    // The low bytes of eight rand() draws after srand(pid + time).
    const time_t before = time(nullptr);
    uint8_t drawn[8];
    GenerateRandomPattern(drawn);
    const time_t after = time(nullptr);
    bool matched = false;
    for (time_t t = before; t <= after && !matched; ++t) {
        srand(unsigned(getpid()) + unsigned(t));
        uint8_t expected[8];
        for (uint8_t &b : expected) b = uint8_t(rand() & 0xFF);
        matched = memcmp(drawn, expected, 8) == 0;
    }
    EXPECT_TRUE(matched);
    // The table's "Random" asks for such a pattern for every request.
    const DiagRequest rq = Build({{DIAG_ROW_DATA_PATTERN, "Random"}});
    const uint8_t zero[8] = {};
    EXPECT_NE(memcmp(rq.Pattern, zero, 8), 0);
}

TEST_F(DiagParams, DataSizeRulesOfTheRequest) {
    // 65536 stays on the chip types 17 and 26 and becomes 65535 elsewhere;
    // 65535 becomes 65536 on those chips.
    const SDMDevice tern = DeviceOfIspType(17), tove = DeviceOfIspType(26), kite = DeviceOfIspType(27);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_SIZE, "65536"}}, DIAG_TEST_LOOPBACK, &tern).DataSize, 65536u);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_SIZE, "65536"}}, DIAG_TEST_LOOPBACK, &kite).DataSize, 65535u);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_SIZE, "65535"}}, DIAG_TEST_LOOPBACK, &tove).DataSize, 65536u);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_SIZE, "65535"}}, DIAG_TEST_LOOPBACK, &kite).DataSize, 65535u);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_SIZE, "2097512"}}).DataSize, 2097512u);
    EXPECT_EQ(Build({{DIAG_ROW_DATA_SIZE, "65536"}}, DIAG_TEST_LOOPBACK, &kite).AdapterInstance, 3u);
    // The buffer test never sends more than 128 bytes.
    AddUserDiagnosticsData(DIAG_ROW_DATA_SIZE, "4096");
    DiagRequest rq{};
    ASSERT_EQ(CopyUserDiagnosticsDataToDiagTable(nullptr, &rq, DIAG_TEST_READ_WRITE_BUFFER), 0u);
    EXPECT_EQ(rq.DataSize, 128u);

    rq = Build({{DIAG_ROW_TEST_COUNT, "0"}, {DIAG_ROW_TEST_INCREMENT, "7"}, {DIAG_ROW_ON_ERROR, "2"}});
    EXPECT_EQ(rq.Continuous, 1u);
    EXPECT_EQ(rq.TestCount, 0);
    EXPECT_EQ(rq.TestIncrement, 7);
    EXPECT_EQ(rq.OnError, VTAPI_DIAG_ONERROR_LOOP);
    EXPECT_EQ(CopyUserDiagnosticsDataToDiagTable(nullptr, nullptr, 0), 8u);
}

}  // namespace

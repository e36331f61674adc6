// Logging and tracing of libvtapifconly: the API messages file, the profiler,
// time stamps, the core console log and the command-line log.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "testutil.h"
#include "oss/oss.h"

// The preference-file readers are replaced here so that the trace file name
// can be tested on its own; the library reaches them through the dynamic
// symbol table, so these definitions are the ones it calls.
namespace {
std::string gFakeConfigName = "/opt/x/tgcli.properties";
bool gFakeOpenFails = false;
std::optional<std::string> gFakeTraceValue;
int gFakeOpenMode = -1;
}  // namespace

extern "C" const char *TarnGetConfigFileName(void) { return gFakeConfigName.c_str(); }

extern "C" FILE *TarnOpenPreferenceFile(const char *, int32_t mode) {
    gFakeOpenMode = mode;
    return gFakeOpenFails ? nullptr : tmpfile();
}

extern "C" uint32_t TarnPrefGetProperty(FILE *stream, const char *key, char *destination) {
    if (stream == nullptr) return 1;
    if (std::strcmp(key, "node.app.messages.trace.file") != 0 || !gFakeTraceValue) return 0xFFFFFFFF;
    std::strcpy(destination, gFakeTraceValue->c_str());
    return 0;
}

namespace {

// Sets up a private messages file under a fresh sysroot and resets the
// switches the tests touch.
class LogFixture : public ::testing::Test {
protected:
    void SetUp() override {
        InitializeLogMessageFile();
        OpenCoreMessagesFile();
        savedLevel_ = gTraceLevel;
        gTraceLevel = 8;
        SetCoreEnableDebugMessage(0);
        bSilent = bSysLog = bXmlOutPut = 0;
    }
    void TearDown() override {
        TarnUnInitializeLogFile();
        gTraceLevel = savedLevel_;
        SetCoreEnableDebugMessage(0);
        bSilent = bSysLog = bXmlOutPut = 0;
        messagesfile[0] = oldmessagesfile[0] = '\0';
    }
    std::string Log() const { return vttest::ReadFile(scope_.path("/var/tmp/vtapi.log")); }
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::istringstream in(Log());
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }
    // Text of the single line written since the file was emptied, without
    // "Debug: hh:mm:ss.mmm:file.cpp(0001):".
    std::string OnlyText() {
        const auto lines = Lines();
        EXPECT_EQ(lines.size(), 1u);
        if (lines.empty()) return {};
        OpenCoreMessagesFile();
        const std::string prefix = "Debug: 00:00:00.000:t.cpp(0001):";
        return lines[0].size() < prefix.size() ? std::string() : lines[0].substr(prefix.size());
    }

    vttest::SysrootScope scope_;
    int32_t savedLevel_ = 8;
};

// Redirects a file descriptor into a temporary file for its lifetime.
class Capture {
public:
    explicit Capture(int fd) : fd_(fd) {
        std::fflush(nullptr);
        saved_ = dup(fd);
        file_ = std::tmpfile();
        dup2(fileno(file_), fd);
    }
    ~Capture() {
        Stop();
        std::fclose(file_);
    }
    std::string Stop() {
        if (saved_ >= 0) {
            std::fflush(nullptr);
            dup2(saved_, fd_);
            close(saved_);
            saved_ = -1;
        }
        std::string text;
        std::rewind(file_);
        for (int c; (c = std::fgetc(file_)) != EOF;) text.push_back(static_cast<char>(c));
        return text;
    }

private:
    int fd_;
    int saved_ = -1;
    FILE *file_ = nullptr;
};

bool IsDigits(const std::string &text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// True for "hh:mm:ss.mmm".
bool IsStamp(const std::string &text) {
    return text.size() == 12 && IsDigits(text.substr(0, 2)) && text[2] == ':' && IsDigits(text.substr(3, 2)) &&
           text[5] == ':' && IsDigits(text.substr(6, 2)) && text[8] == '.' && IsDigits(text.substr(9, 3));
}

// The part of a messages-file line after "Word: hh:mm:ss.mmm:", or "<bad>"
// when the line does not have that shape.
std::string AfterStamp(const std::string &line, const std::string &word) {
    const std::string head = word + ": ";
    if (line.compare(0, head.size(), head) != 0 || line.size() < head.size() + 13 ||
        !IsStamp(line.substr(head.size(), 12)) || line[head.size() + 12] != ':')
        return "<bad>";
    return line.substr(head.size() + 13);
}

// The milliseconds of "PROFILER EXIT FUNCTION name N ms<suffix>", or -1.
int ExitMs(const std::string &line, const std::string &name, const std::string &suffix = "") {
    const std::string head = "PROFILER EXIT FUNCTION " + name + " ";
    const std::string tail = " ms" + suffix;
    const std::string rest = AfterStamp(line, "Profile");
    if (rest.size() <= head.size() + tail.size() || rest.compare(0, head.size(), head) != 0 ||
        rest.compare(rest.size() - tail.size(), tail.size(), tail) != 0)
        return -1;
    const std::string number = rest.substr(head.size(), rest.size() - head.size() - tail.size());
    return IsDigits(number) ? std::stoi(number) : -1;
}

std::string LocalStamp() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%m%d%Y%H%M%S", &local);
    return text;
}

TEST_F(LogFixture, MessagesFileLineFormat) {
    EXPECT_STREQ(messagesfile, "/var/tmp/vtapi.log");
    EXPECT_STREQ(oldmessagesfile, "/var/tmp/vtapi_prev.log");
    EXPECT_EQ(Log(), "");

    LogDebug("/src/dir/file.cpp", 42, "value %d of %s", 7, "x");
    LogDebug("plain.cpp", 123456, "wide");
    LogDebug(nullptr, 5, "no source");
    LogDebug("/odd/a%s.cpp", 1, "%s", "pct");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(AfterStamp(lines[0], "Debug"), "file.cpp(0042):value 7 of x");
    EXPECT_EQ(AfterStamp(lines[1], "Debug"), "plain.cpp(123456):wide");
    EXPECT_EQ(AfterStamp(lines[2], "Debug"), "no source");
    // A "%" in the source name never takes the caller's argument; like all
    // text it is interpreted by the second pass.
    EXPECT_EQ(AfterStamp(lines[3], "Debug"), "a.cpp(0001):pct");

    // A file removed between two lines is started again; a symbolic link in
    // its place is never followed; without a name nothing is written.
    ASSERT_EQ(unlink(scope_.path("/var/tmp/vtapi.log").c_str()), 0);
    LogDebug("a.cpp", 1, "again");
    EXPECT_EQ(Lines().size(), 1u);
    ASSERT_EQ(unlink(scope_.path("/var/tmp/vtapi.log").c_str()), 0);
    vttest::WriteFile(scope_.path("/victim"), "");
    ASSERT_EQ(symlink(scope_.path("/victim").c_str(), scope_.path("/var/tmp/vtapi.log").c_str()), 0);
    LogDebug("a.cpp", 1, "through link");
    EXPECT_EQ(vttest::ReadFile(scope_.path("/victim")), "");
    ASSERT_EQ(unlink(scope_.path("/var/tmp/vtapi.log").c_str()), 0);
    messagesfile[0] = '\0';
    LogDebug("a.cpp", 1, "dropped");
    OpenCoreMessagesFile();
    EXPECT_EQ(access(scope_.path("/var/tmp/vtapi.log").c_str(), F_OK), -1);
}

TEST_F(LogFixture, SecondPassAndHostileText) {
    // The text is formatted once more: conversions that arrive through an
    // argument print as if their argument were 0.
    LogDebug("t.cpp", 1, "arg=%s", "%d|%04d|%5s|%%|%x|%.2f|%-3u|%p|%lld|%*d");
    EXPECT_EQ(OnlyText(), "arg=0|0000|     |%|0|0.00|0  |(nil)|0|0");
    LogDebug("t.cpp", 1, "%s", "a%nb%1$sc%");
    EXPECT_EQ(OnlyText(), "abc%");
    LogDebug("t.cpp", 1, "%s", "%q unknown");
    EXPECT_EQ(OnlyText(), "%q unknown");

    // Hostile text neither crashes nor runs past the 511-character line.
    LogDebug("t.cpp", 1, "%s", "%s%s%s%n%999999999d%.999999999f%99999999999999999999s");
    const auto hostile = Lines();
    ASSERT_EQ(hostile.size(), 1u);
    EXPECT_EQ(hostile[0].size(), std::string("Debug: ").size() + 511);
    EXPECT_EQ(AfterStamp(hostile[0], "Debug"), "t.cpp(0001):" + std::string(511 - 25, ' '));
    OpenCoreMessagesFile();

    const std::string longText(2000, 'y');
    LogDebug("t.cpp", 1, "%s", longText.c_str());
    const auto cut = Lines();
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_EQ(cut[0].size(), std::string("Debug: ").size() + 511);
}

TEST_F(LogFixture, LogMessageFormatsItsArguments) {
    // Called directly, LogMessage is an ordinary printf-style call: no time
    // stamp, no source position, and a line of at most 511 characters.
    LogMessage(VT_MSG_INFO, "count=%d name=%s", 5, "abc");
    LogMessage(VT_MSG_WARNING, "%s|%05.1f|%c", "%d stays", 2.25, 'z');
    LogMessage(VT_MSG_ERROR, "%s", std::string(600, 'q').c_str());
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Info: count=5 name=abc");
    EXPECT_EQ(lines[1], "Warning: %d stays|002.2|z");
    EXPECT_EQ(lines[2], "Error: " + std::string(511, 'q'));
}

TEST_F(LogFixture, TraceBitsGateLevels) {
    for (int32_t level : {0, 1, 2, 4, 7}) {
        OpenCoreMessagesFile();
        gTraceLevel = level;
        LogInfo("t.cpp", 1, "i");
        LogWarning("t.cpp", 1, "w");
        LogError("t.cpp", 1, "e");
        LogDebug("t.cpp", 1, "d");
        std::string words;
        for (const auto &line : Lines()) words += line.substr(0, line.find(':')) + " ";
        std::string expected;
        if (level & 1) expected += "Info ";
        if (level & 2) expected += "Warning ";
        if (level & 4) expected += "Error ";
        expected += "Debug ";
        EXPECT_EQ(words, expected) << "level " << level;
    }

    // Command-line debug text: only while core debug messages are on, and
    // without time stamp or source position.
    OpenCoreMessagesFile();
    TarnLogMessage(VT_MSG_DEBUG, "off %d", 1);
    SetCoreEnableDebugMessage(1);
    EXPECT_EQ(GetCoreEnableDebugMessage(), 1);
    TarnLogMessage(VT_MSG_DEBUG, "on %d", 2);
    TarnLogMessage(VT_MSG_PROFILE, "p");
    TarnLogMessage(42, "u");
    EXPECT_EQ(Log(), "Debug: on 2\nProfile: p\nUnknown: u\n");
}

TEST_F(LogFixture, Profiler) {
    gTraceLevel = 0;  // profiler lines do not look at the trace level
    ProfilerEnterFunction("VTAPI_Thing");
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    ProfilerExitFunction("VTAPI_Thing");
    ProfilerEnterFunction("Two");
    ProfilerExitFunction2("Two", -5);
    auto lines = Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(AfterStamp(lines[0], "Profile"), "PROFILER ENTER FUNCTION VTAPI_Thing");
    const int elapsed = ExitMs(lines[1], "VTAPI_Thing");
    EXPECT_GE(elapsed, 29) << lines[1];
    EXPECT_GE(ExitMs(lines[3], "Two", "  status=-5"), 0) << lines[3];

    // An exit for a name that is not on the stack reports one mismatch,
    // empties the stack and reports the name as missing.
    OpenCoreMessagesFile();
    ProfilerEnterFunction("A");
    ProfilerEnterFunction("B");
    ProfilerEnterFunction("C");
    ProfilerExitFunction("Q");
    ProfilerExitFunction("A");
    lines = Lines();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_NE(lines[3].find(":PROFILER ERROR - Q expected at top of stack, C found instead"), std::string::npos);
    EXPECT_NE(lines[4].find(":PROFILER ERROR - Q not found in stack"), std::string::npos);
    EXPECT_NE(lines[5].find(":PROFILER ERROR - A not found in stack"), std::string::npos) << "stack not emptied";

    // An exit that matches below the top drops the frames above it.
    OpenCoreMessagesFile();
    ProfilerEnterFunction("Outer");
    ProfilerEnterFunction("Inner");
    ProfilerExitFunction("Outer");
    ProfilerExitFunction("Inner");
    lines = Lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_NE(lines[2].find("PROFILER ERROR - Outer expected at top of stack, Inner found instead"), std::string::npos);
    EXPECT_NE(lines[3].find("PROFILER EXIT FUNCTION Outer "), std::string::npos);
    EXPECT_NE(lines[4].find("PROFILER ERROR - Inner not found in stack"), std::string::npos);
}

TEST(LogTimeStamp, BufferSizes) {
    char buffer[32];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(vtapiGetTimeStamp(buffer, 12), buffer);
    EXPECT_STREQ(buffer, "");
    ASSERT_EQ(vtapiGetTimeStamp(buffer, 13), buffer);
    EXPECT_TRUE(IsStamp(buffer)) << buffer;
    EXPECT_EQ(vtapiGetTimeStamp(nullptr, 13), nullptr);
    EXPECT_EQ(vtapiGetTimeStamp(buffer, 0), nullptr);
}

TEST_F(LogFixture, RenameAndSizeLimit) {
    const std::string cur = scope_.path("/var/tmp/vtapi.log");
    const std::string prev = scope_.path("/var/tmp/vtapi_prev.log");
    vttest::WriteFile(cur, "current\n");
    vttest::WriteFile(prev, "older\n");
    EXPECT_EQ(RenameLogFile(messagesfile, oldmessagesfile), 0);
    EXPECT_EQ(vttest::ReadFile(prev), "current\n");
    EXPECT_EQ(access(cur.c_str(), F_OK), -1);
    // A missing old file is not an error, but the new name is still removed.
    EXPECT_EQ(RenameLogFile(messagesfile, oldmessagesfile), 0);
    EXPECT_EQ(access(prev.c_str(), F_OK), -1);
    vttest::WriteFile(cur, "x");
    EXPECT_NE(RenameLogFile(messagesfile, "/no/such/dir/file"), 0);
    EXPECT_EQ(vttest::ReadFile(cur), "x");

    EXPECT_EQ(IsFileSizeWithinLimit(nullptr, 0), 1);
    vttest::WriteFile(cur, "0123456789");
    EXPECT_EQ(IsFileSizeWithinLimit("/var/tmp/vtapi.log", 10), 0);
    EXPECT_EQ(IsFileSizeWithinLimit("/var/tmp/vtapi.log", 11), 1);
}

TEST_F(LogFixture, ConsoleAndCommandLineLog) {
    {  // core console log: stdout, stderr for errors, silent in quiet mode
        Capture out(1), err(2);
        CoreLogMessage(VT_MSG_INFO, "hello %d", 3);
        CoreLogMessage(VT_MSG_DEBUG, "dbg");
        CoreLogMessage(VT_MSG_PROFILE, "prof");
        CoreLogMessage(VT_MSG_ERROR, "bad");
        CoreSetQuietMode(1);  // taken over only by OSSInitialize
        EXPECT_EQ(CoreGetQuietMode(), 1);
        CoreLogMessage(VT_MSG_INFO, "still");
        OSSInitialize(0, nullptr);
        CoreLogMessage(VT_MSG_INFO, "quiet");
        CoreLogMessage(VT_MSG_ERROR, "quiet");
        CoreSetQuietMode(0);
        OSSInitialize(0, nullptr);
        OSSDeleteCriticalSection();
        EXPECT_EQ(out.Stop(), "Info: hello 3\nDebug: dbg\nUnknown: prof\nInfo: still\n");
        EXPECT_EQ(err.Stop(), "Error: bad\n");
    }
    {  // PrintMessage routing and switches
        Capture out(1), err(2);
        PrintMessage(VT_MSG_PLAIN, "plain\n");
        PrintMessage(VT_MSG_WARNING, "warn\n");
        PrintMessage(VT_MSG_ERROR, "err\n");
        PrintMessage(VT_MSG_INFO, nullptr);
        TarnPrint(VT_MSG_INFO, "n=%d\n", 4);
        SetDisplayMode(1);
        EXPECT_EQ(bSilent, 1);
        PrintMessage(VT_MSG_PLAIN, "silent\n");
        bSysLog = 1;
        PrintMessage(VT_MSG_PLAIN, "syslog\n");
        SetDisplayMode(2);
        EXPECT_EQ(bSilent, 0);
        bSysLog = 0;
        bXmlOutPut = 1;
        PrintMessage(VT_MSG_INFO, "xml-info\n");
        PrintMessage(VT_MSG_PLAIN, "xml-plain\n");
        PrintMessage(VT_MSG_ERROR, "xml-err\n");
        bXmlOutPut = 0;
        TarnMenuLogMessage(VT_MSG_DEBUG, "menu-off\n");
        SetCoreEnableDebugMessage(1);
        TarnMenuLogMessage(VT_MSG_DEBUG, "menu %s\n", "on");
        TarnMenuLogMessage(VT_MSG_PLAIN, "menu plain\n");
        TarnMenuLogMessage(VT_MSG_PROFILE, "menu prof\n");
        EXPECT_EQ(out.Stop(),
                  "plain\nWarning: warn\nInfo: n=4\nsyslog\nxml-plain\n"
                  "Debug: menu on\nmenu plain\nUnknown: menu prof\n");
        EXPECT_EQ(err.Stop(), "Error: err\nError: xml-err\n");
    }

    // With a command-line log file open, everything goes there.  Its name
    // is opened as given, never mapped under the system root.
    const std::string cliLog = scope_.path("/var/tmp/cli.log");
    SetLogFileName(cliLog.c_str());
    EXPECT_EQ(GetLogFileName(), cliLog);
    ASSERT_EQ(TarnInitializeLogFile("a+"), 0);
    ASSERT_NE(g_fp, nullptr);
    {
        Capture out(1), err(2);
        PrintMessage(VT_MSG_ERROR, "to file\n");
        PrintMessage(VT_MSG_PLAIN, "plain to file\n");
        EXPECT_EQ(out.Stop(), "");
        EXPECT_EQ(err.Stop(), "");
    }
    TarnUnInitializeLogFile();
    EXPECT_EQ(g_fp, nullptr);
    EXPECT_EQ(vttest::ReadFile(scope_.path("/var/tmp/cli.log")), "Error: to file\nplain to file\n");
    EXPECT_EQ(TarnInitializeLogFile(nullptr), 1);
    SetLogFileName("");
    EXPECT_EQ(TarnInitializeLogFile("a+"), 1);
    EXPECT_EQ(g_fp, nullptr);
    SetLogFileName(scope_.path("/var/nodir/cli.log").c_str());
    EXPECT_EQ(TarnInitializeLogFile("a+"), 1);
}

TEST_F(LogFixture, AppTraceFileName) {
    gTraceLevel = VT_TRACE_WARNING;
    gFakeOpenFails = true;
    EXPECT_EQ(SetAppTraceFileName(), -1);
    EXPECT_NE(Log().find("Warning: "), std::string::npos);
    EXPECT_NE(Log().find("Unable to open preference file (/opt/x/tgcli.properties)."), std::string::npos);
    gFakeOpenFails = false;

    gFakeTraceValue.reset();
    EXPECT_EQ(SetAppTraceFileName(), -1);
    EXPECT_EQ(gFakeOpenMode, 0);

    struct Case {
        std::string value, head, tail;
    };
    for (const Case &c :
         {Case{"trace.log", "trace.", ".log"}, Case{"mytrace", "mytrace.", ".log"},
          Case{"/opt/a.d/run.txt", "/opt/a.d/run.", ".txt"}, Case{"/opt/a.d/run", "/opt/a.d/run.", ".log"}}) {
        gFakeTraceValue = c.value;
        const std::string before = LocalStamp();
        ASSERT_EQ(SetAppTraceFileName(), 0);
        const std::string after = LocalStamp();
        // The name it made is in its log line.
        const auto lines = Lines();
        const std::string marker = "SetAppTraceFileName: Log File=";
        const std::string &last = lines.back();
        ASSERT_NE(last.find(marker), std::string::npos) << last;
        const std::string name = last.substr(last.find(marker) + marker.size());
        ASSERT_EQ(name.size(), c.head.size() + 14 + c.tail.size()) << name;
        EXPECT_EQ(name.substr(0, c.head.size()), c.head);
        EXPECT_EQ(name.substr(name.size() - c.tail.size()), c.tail);
        const std::string stamp = name.substr(c.head.size(), 14);
        EXPECT_TRUE(stamp == before || stamp == after) << name;
    }
    EXPECT_NE(Log().find("SetAppTraceFileName: Log File=/opt/a.d/run."), std::string::npos);
    gFakeTraceValue.reset();
}

}  // namespace

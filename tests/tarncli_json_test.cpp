// tarncli's JSON output: every report is one document that nlohmann-json
// reads, and its values are those the text report shows on the default
// simulated host; failures are an object with the status and the message,
// and keep their exit statuses.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "testutil.h"

namespace {

using nlohmann::json;
using vttest::Lines;
using vttest::RunResult;

std::vector<std::string> Words(const std::string &line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

std::string Join(const std::vector<std::string> &words, size_t from, size_t to) {
    std::string text;
    for (size_t i = from; i < to; ++i) text += (text.empty() ? "" : " ") + words[i];
    return text;
}

// "Label : value" lines of a text report, by label (the first of a label
// wins; continuation lines are appended with a blank).
std::map<std::string, std::string> Fields(const std::vector<std::string> &lines) {
    std::map<std::string, std::string> fields;
    std::string last;
    for (const std::string &line : lines) {
        const size_t colon = line.find(" : ");
        if (colon == std::string::npos) {
            if (!last.empty() && line.rfind("       ", 0) == 0 && line.find_first_not_of(' ') != std::string::npos)
                fields[last] += " " + line.substr(line.find_first_not_of(' '));
            else last.clear();
            continue;
        }
        std::string label = line.substr(0, colon);
        while (!label.empty() && label.back() == ' ') label.pop_back();
        while (!label.empty() && label.front() == ' ') label.erase(0, 1);
        if (fields.count(label) != 0) {
            last.clear();
            continue;
        }
        fields[label] = line.substr(colon + 3);
        last = label;
    }
    return fields;
}

// The size text the reports write for a number of bytes.
std::string SizeText(uint64_t bytes) {
    const char *units[] = {"B", "KB", "MB", "GB", "TB", "PB"};
    double value = double(bytes);
    int unit = 0;
    while (value >= 999.95 && unit < 5) {
        value /= 1000.0;
        ++unit;
    }
    char text[32];
    if (unit == 0) std::snprintf(text, sizeof text, "%llu B", static_cast<unsigned long long>(bytes));
    else std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

std::string SpeedText(const json &speed) { return speed.is_null() ? "-" : std::to_string(speed.get<int>()) + " Gb/s"; }

class TarncliJsonTest : public ::testing::Test {
protected:
    RunResult Tarn(std::vector<std::string> args, std::vector<std::string> env = {}) {
        args.insert(args.begin(), vttest::BuildPath("bin/tarncli"));
        return vttest::Run(args, env);
    }
    // The text report and the JSON document of the same command.
    std::pair<std::vector<std::string>, json> Both(const std::vector<std::string> &args) {
        const RunResult text = Tarn(args);
        EXPECT_EQ(text.status, 0) << text.err;
        std::vector<std::string> jsonArgs = args;
        jsonArgs.insert(jsonArgs.begin(), "-j");
        const RunResult doc = Tarn(jsonArgs);
        EXPECT_EQ(doc.status, 0) << doc.err;
        json parsed;
        try {
            parsed = json::parse(doc.out);
        } catch (const json::exception &e) {
            ADD_FAILURE() << e.what() << "\n" << doc.out;
        }
        EXPECT_EQ(parsed.value("status", -1), 0);
        return {Lines(text.out), parsed};
    }
    // The host object against the host lines of the text (-g and -z).
    void CompareHost(const std::map<std::string, std::string> &f, const json &host) {
        EXPECT_EQ(f.at("Host Name"), host.at("host_name"));
        EXPECT_EQ(f.at("OS Type"), host.at("os_type"));
        EXPECT_EQ(f.at("OS Version"), host.at("os_version"));
        EXPECT_EQ(f.at("Device Library"), host.at("device_library"));
        EXPECT_EQ(f.at("Device Backend"), host.at("device_backend").get<std::string>() + " (" +
                                              host.at("device_backend_description").get<std::string>() + ")");
        EXPECT_EQ(f.at("HBAs"), std::to_string(host.at("hbas").get<int>()) + " (" +
                                    std::to_string(host.at("fc_ports").get<int>()) + " FC ports, " +
                                    std::to_string(host.at("virtual_ports").get<int>()) + " virtual port)");
    }

    vttest::SysrootScope sysroot_;
};

// Rows of a table: the lines after the heading's rule up to the next rule
// or blank line.
std::vector<std::vector<std::string>> TableRows(const std::vector<std::string> &lines, const std::string &heading) {
    std::vector<std::vector<std::string>> rows;
    const int at = vttest::FindLine(lines, heading);
    if (at < 0) return rows;
    for (size_t i = size_t(at) + 2; i < lines.size() && !lines[i].empty() && lines[i][0] != '-'; ++i)
        rows.push_back(Words(lines[i]));
    return rows;
}

TEST_F(TarncliJsonTest, GeneralAndSummaryMatchTheirText) {
    {
        const auto [text, doc] = Both({"-g"});
        CompareHost(Fields(text), doc.at("host"));
        const auto rows = TableRows(text, "Inst  Model");
        const json &ports = doc.at("ports");
        ASSERT_EQ(rows.size(), ports.size());
        ASSERT_EQ(rows.size(), 7u);
        for (size_t i = 0; i < rows.size(); ++i) {
            const auto &r = rows[i];
            const json &p = ports[i];
            SCOPED_TRACE(Join(r, 0, r.size()));
            EXPECT_EQ(r[0], std::to_string(p.at("instance").get<int>()));
            EXPECT_EQ(r[1], p.at("model"));
            EXPECT_EQ(r[2], p.at("serial"));
            // A virtual port shows "v<id>" and has no port number.
            if (p.contains("virtual_port_id")) {
                EXPECT_FALSE(p.contains("port"));
                EXPECT_EQ(r[3], "v" + std::to_string(p.at("virtual_port_id").get<int>()));
            } else {
                EXPECT_EQ(r[3], std::to_string(p.at("port").get<int>()));
            }
            EXPECT_EQ(r[4], p.at("wwpn"));
            const size_t speedAt = r.back() == "-" ? r.size() - 1 : r.size() - 2;
            EXPECT_EQ(Join(r, 5, speedAt), p.at("state"));
            EXPECT_EQ(Join(r, speedAt, r.size()), SpeedText(p.at("speed_gbps")));
        }
    }
    {
        const auto [text, doc] = Both({"-z"});
        CompareHost(Fields(text), doc.at("host"));
        const auto rows = TableRows(text, "Inst  Model");
        const json &ports = doc.at("ports");
        ASSERT_EQ(rows.size(), ports.size());
        uint64_t targets = 0, luns = 0;
        for (size_t i = 0; i < rows.size(); ++i) {
            const auto &r = rows[i];
            const json &p = ports[i];
            SCOPED_TRACE(Join(r, 0, r.size()));
            EXPECT_EQ(r[0], std::to_string(p.at("instance").get<int>()));
            EXPECT_EQ(r[1], p.at("model"));
            EXPECT_EQ(r[2], p.at("wwpn"));
            // Capacity is the last one ("-") or two words ("6.3 TB").
            const json &bytes = p.at("capacity_bytes");
            const size_t capAt = bytes.is_null() ? r.size() - 1 : r.size() - 2;
            EXPECT_EQ(Join(r, capAt, r.size()), bytes.is_null() ? "-" : SizeText(bytes.get<uint64_t>()));
            EXPECT_EQ(r[capAt - 1], std::to_string(p.at("luns").get<int>()));
            EXPECT_EQ(r[capAt - 2], std::to_string(p.at("targets").get<int>()));
            const json &speed = p.at("speed_gbps");
            EXPECT_EQ(r[capAt - 3], speed.is_null() ? "-" : std::to_string(speed.get<int>()));
            EXPECT_EQ(Join(r, 3, capAt - 3), p.at("state"));
            targets += p.at("targets").get<uint64_t>();
            luns += p.at("luns").get<uint64_t>();
        }
        // The total counts paths; its capacity counts each LUN once, so it
        // is not the sum of the rows.
        const json &total = doc.at("total");
        EXPECT_EQ(total.at("targets").get<uint64_t>(), targets);
        EXPECT_EQ(total.at("luns").get<uint64_t>(), luns);
        EXPECT_FALSE(total.contains("model")) << "the caption is text only";
        const int at = vttest::FindLine(text, "Total");
        ASSERT_GE(at, 0);
        const auto t = Words(text[size_t(at)]);
        EXPECT_EQ(Join(t, 1, t.size()), std::to_string(targets) + " " + std::to_string(luns) + " " +
                                            SizeText(total.at("capacity_bytes").get<uint64_t>()));
    }
}

TEST_F(TarncliJsonTest, InfoAndVpdMatchTheirText) {
    const auto [text, doc] = Both({"-i", "0"});
    ASSERT_EQ(doc.at("ports").size(), 1u);
    const json &port = doc.at("ports")[0];
    EXPECT_EQ(text[0], "HBA instance " + std::to_string(port.at("instance").get<int>()) + ": " +
                           port.at("model").get<std::string>() + ", port " +
                           std::to_string(port.at("port").get<int>()) + ", WWPN " + port.at("wwpn").get<std::string>());
    const auto f = Fields(text);
    const json &g = port.at("general");
    EXPECT_EQ(f.at("Model"), g.at("model"));
    EXPECT_EQ(f.at("Description"), g.at("description"));
    EXPECT_EQ(f.at("Serial Number"), g.at("serial"));
    EXPECT_EQ(f.at("WWNN"), g.at("wwnn"));
    EXPECT_EQ(f.at("WWPN"), g.at("wwpn"));
    EXPECT_EQ(f.at("Port ID"), g.at("port_id"));
    EXPECT_EQ(f.at("Port State"), g.at("state"));
    EXPECT_EQ(f.at("Port Speed"), SpeedText(g.at("speed_gbps")));
    std::string speeds;
    for (const json &s : g.at("supported_speeds_gbps")) speeds += (speeds.empty() ? "" : ", ") + s.dump();
    EXPECT_EQ(f.at("Supported Speeds"), speeds + " Gb/s");
    EXPECT_EQ(f.at("Driver Version"),
              g.at("driver_name").get<std::string>() + " " + g.at("driver_version").get<std::string>());
    EXPECT_EQ(f.at("Firmware Version"), g.at("firmware_version"));
    EXPECT_EQ(f.at("BIOS / FCode / EFI"), g.at("bios_version").get<std::string>() + " / " +
                                              g.at("fcode_version").get<std::string>() + " / " +
                                              g.at("efi_version").get<std::string>());
    EXPECT_EQ(f.at("PCI Location"), g.at("pci_location"));
    char ids[64];
    std::snprintf(ids, sizeof ids, "%04x:%04x, subsystem %04x:%04x, revision %d", g.at("pci_vendor_id").get<int>(),
                  g.at("pci_device_id").get<int>(), g.at("pci_subsystem_vendor_id").get<int>(),
                  g.at("pci_subsystem_id").get<int>(), g.at("chip_revision").get<int>());
    EXPECT_EQ(f.at("PCI IDs"), ids);
    EXPECT_EQ(f.at("Fabric Name"), g.at("fabric_name"));
    EXPECT_EQ(f.at("Targets"), std::to_string(g.at("targets").get<int>()));
    EXPECT_EQ(f.at("Virtual Ports"), std::to_string(g.at("virtual_ports").get<int>()));

    // The VPD table: "Label (KW) : value", the checksum in hexadecimal.
    const auto checkVpd = [](const std::vector<std::string> &lines, const json &vpd) {
        const int at = vttest::FindLine(lines, "Vital Product Data");
        ASSERT_GE(at, 0);
        ASSERT_EQ(vpd.size(), lines.size() - size_t(at) - 1);
        for (size_t i = 0; i < vpd.size(); ++i) {
            const json &e = vpd[i];
            const std::string &line = lines[size_t(at) + 1 + i];
            const std::string head = e.at("label").get<std::string>() + " (" + e.at("keyword").get<std::string>() + ")";
            EXPECT_EQ(line.substr(2, head.size()), head);
            EXPECT_EQ(line.substr(line.find(" : ") + 3), e.at("value")) << line;
        }
        EXPECT_EQ(vpd.back().at("keyword"), "RV");
        EXPECT_EQ(vpd.back().at("value").get<std::string>().rfind("0x", 0), 0u);
    };
    checkVpd(text, port.at("vpd"));

    const auto [vpdText, vpdDoc] = Both({"-i", "0", "vpd"});
    const json &vpdPort = vpdDoc.at("ports")[0];
    EXPECT_FALSE(vpdPort.contains("general"));
    checkVpd(vpdText, vpdPort.at("vpd"));
    EXPECT_EQ(vpdPort.at("vpd"), port.at("vpd"));
}

TEST_F(TarncliJsonTest, TargetsAndLunsMatchTheirText) {
    {
        const auto [text, doc] = Both({"-t", "0"});
        const json &targets = doc.at("ports")[0].at("targets");
        const int at = vttest::FindLine(text, "Tgt  WWPN / WWNN");
        ASSERT_GE(at, 0);
        ASSERT_EQ(text.size() - size_t(at) - 1, 2 * targets.size());
        for (size_t i = 0; i < targets.size(); ++i) {
            const json &t = targets[i];
            const auto first = Words(text[size_t(at) + 1 + 2 * i]);
            const auto second = Words(text[size_t(at) + 2 + 2 * i]);
            SCOPED_TRACE(Join(first, 0, first.size()));
            ASSERT_EQ(first.size(), 6u);
            EXPECT_EQ(first[0], std::to_string(t.at("target_id").get<int>()));
            EXPECT_EQ(first[1], t.at("wwpn"));
            EXPECT_EQ(first[2], t.at("port_id"));
            EXPECT_EQ(first[3], t.at("type").is_null() ? "-" : t.at("type").get<std::string>());
            EXPECT_EQ(first[4], t.at("status"));
            EXPECT_EQ(first[5], std::to_string(t.at("luns").get<int>()));
            EXPECT_EQ(second[0], t.at("wwnn"));
            EXPECT_EQ(Join(second, 1, second.size()), t.value("product", ""));
        }
    }
    {
        const auto [text, doc] = Both({"-l", "0"});
        const json &targets = doc.at("ports")[0].at("targets");
        size_t line = 2, lunsSeen = 0;
        for (const json &t : targets) {
            ASSERT_LT(line, text.size());
            const std::string heading =
                "Target " + t.at("wwpn").get<std::string>() + "  Port ID " + t.at("port_id").get<std::string>();
            const std::string product = t.value("product", "");
            EXPECT_EQ(text[line], product.empty() ? heading : heading + "  " + product);
            ++line;
            if (t.at("luns").empty()) {
                EXPECT_EQ(text[line], "  No LUNs.");
                line += 2;
                continue;
            }
            ++line;  // column headings
            for (const json &l : t.at("luns")) {
                const auto w = Words(text[line++]);
                SCOPED_TRACE(Join(w, 0, w.size()));
                ++lunsSeen;
                // LUN, type, product (blanks inside), revision, size (one
                // or two words), path, OS device.
                const json &bytes = l.at("capacity_bytes");
                const size_t sizeAt = w.size() - 2 - (bytes.is_null() ? 1 : 2);
                EXPECT_EQ(w[0], std::to_string(l.at("lun").get<int>()));
                EXPECT_EQ(w[1], l.at("type"));
                EXPECT_EQ(Join(w, 2, sizeAt - 1), l.at("product"));
                EXPECT_EQ(w[sizeAt - 1], l.at("revision"));
                EXPECT_EQ(Join(w, sizeAt, w.size() - 2), bytes.is_null() ? "-" : SizeText(bytes.get<uint64_t>()));
                EXPECT_EQ(w[w.size() - 2], l.at("path"));
                EXPECT_EQ(w.back(), l.at("os_device_name"));
            }
            ++line;  // blank line between targets
        }
        EXPECT_EQ(lunsSeen, 8u);
    }
}

TEST_F(TarncliJsonTest, VersionMatchesItsText) {
    const auto [text, doc] = Both({"-v"});
    ASSERT_EQ(text.size(), 3u);
    EXPECT_EQ(Words(text[0])[0], doc.at("tool"));
    EXPECT_EQ(Words(text[0])[1], doc.at("version"));
    EXPECT_EQ(Fields(text).at("Command-line core"), doc.at("command_line_core"));
    EXPECT_EQ(Fields(text).at("Device library"), doc.at("device_library"));
}

// Every report of every port, in both spellings of the switch, before or
// after the command: one well-formed document.
TEST_F(TarncliJsonTest, EveryReportIsOneDocument) {
    const std::vector<std::vector<std::string>> commands = {{"-g"}, {"-i"}, {"-i", "all", "vpd"},
                                                            {"-t"}, {"-l"}, {"-z"}};
    for (const auto &cmd : commands) {
        for (const bool slash : {false, true}) {
            std::vector<std::string> args = cmd;
            if (slash) args.push_back("/j");
            else args.insert(args.begin(), "-j");
            const RunResult r = Tarn(args);
            SCOPED_TRACE(cmd[0]);
            EXPECT_EQ(r.status, 0) << r.err;
            EXPECT_TRUE(json::accept(r.out)) << r.out;
        }
    }
    // The same reports in JSON hold the same ports as the text has headings.
    const RunResult text = Tarn({"-t"});
    const json doc = json::parse(Tarn({"-j", "-t"}).out);
    size_t headings = 0;
    for (const auto &line : Lines(text.out)) headings += line.rfind("HBA instance ", 0) == 0;
    EXPECT_EQ(doc.at("ports").size(), headings);
}

TEST_F(TarncliJsonTest, FailuresAreAnObjectWithStatusAndMessage) {
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"-j", "-t", "99"}, 8, "Error: No HBA port with instance 99 found!"},
        {{"-j", "-zz"}, 60, "Error: Unknown option '-zz'!"},
        {{"-j", "-q"}, 66, "-q (iiDMA settings): not available in this version of tarncli."},
        {{"-j", "-h"}, 136, "Online help is not available with JSON output!"},
        {{"-j", "-o", "system", "-g"}, 136, "Error: Cannot generate JSON output format to the system log file"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args[1]);
        const RunResult r = Tarn(c.args);
        EXPECT_EQ(r.status, c.status) << r.out << r.err;
        json doc;
        ASSERT_NO_THROW(doc = json::parse(r.out)) << r.out;
        EXPECT_EQ(doc.size(), 2u) << r.out;
        EXPECT_EQ(doc.value("status", -1), c.status);
        EXPECT_EQ(doc.value("error", ""), c.message);
        EXPECT_TRUE(r.err.empty()) << r.err;
    }
}

// Texts reach JSON escaped: quotes, backslashes and non-ASCII characters of
// a host's description come back as they were.
TEST_F(TarncliJsonTest, TextsAreEscaped) {
    const std::string from = "VT2912 dual-port 64Gb Fibre Channel adapter";
    std::string host = vttest::ReadFile(vttest::BuildPath("data/default_host.json"));
    const size_t at = host.find(from);
    ASSERT_NE(at, std::string::npos);
    host.replace(at, from.size(), R"(Caf\u00e9 \"quoted\" back\\slash <&>)");
    const std::string path = sysroot_.path("/host.json");
    vttest::WriteFile(path, host);
    const RunResult r = Tarn({"-j", "-i", "0"}, {"VTSDM_HOST=" + path});
    ASSERT_EQ(r.status, 0) << r.err;
    const json doc = json::parse(r.out);
    EXPECT_EQ(doc.at("ports")[0].at("general").at("description"), "Caf\xc3\xa9 \"quoted\" back\\slash <&>");
}

}  // namespace

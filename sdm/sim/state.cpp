#include "state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <nlohmann/json.hpp>

namespace vtsdm {

using nlohmann::json;

namespace {

constexpr int kFormat = 1;

std::string Hex(const void *data, size_t n) {
    static const char *d = "0123456789abcdef";
    std::string s;
    s.reserve(n * 2);
    auto *p = static_cast<const uint8_t *>(data);
    for (size_t i = 0; i < n; ++i) {
        s.push_back(d[p[i] >> 4]);
        s.push_back(d[p[i] & 15]);
    }
    return s;
}

bool Unhex(const std::string &s, std::vector<uint8_t> &out) {
    if (s.size() % 2) return false;
    out.resize(s.size() / 2);
    for (size_t i = 0; i < out.size(); ++i) {
        int v = 0;
        for (int k = 0; k < 2; ++k) {
            char c = s[2 * i + k];
            int d = (c >= '0' && c <= '9') ? c - '0' : (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
            if (d < 0) return false;
            v = v * 16 + d;
        }
        out[i] = uint8_t(v);
    }
    return true;
}

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

bool WriteAll(int fd, const std::string &data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += size_t(n);
    }
    return true;
}

// ---- moving counters, diagnostic scripts, run-time targets and the clock

json StepsToJson(const std::vector<DiagStep> &steps) {
    json a = json::array();
    for (const DiagStep &d : steps) a.push_back(FormatDiagStep(d));
    return a;
}

bool StepsFromJson(const json &a, std::vector<DiagStep> &steps) {
    std::string error;
    for (const auto &text : a) {
        auto step = ParseDiagStep(text.get<std::string>(), error);
        if (!step) return false;
        steps.push_back(*step);
    }
    return true;
}

void MonitorFieldsToJson(const PortChanges &p, json &o) {
    if (p.statsAtNs) o["stats_at"] = p.statsAtNs;
    if (p.traffic) o["traffic"] = {p.traffic->ioPerSecond, p.traffic->mbPerSecond};
    if (p.diagScript) o["diag_script"] = StepsToJson(*p.diagScript);
    if (p.readBufferMiscompare) o["read_buffer_miscompare"] = *p.readBufferMiscompare;
}

bool MonitorFieldsFromJson(const json &o, PortChanges &p) {
    p.statsAtNs = o.value("stats_at", int64_t(0));
    if (o.contains("traffic"))
        p.traffic = TrafficRates{o["traffic"].at(0).get<uint64_t>(), o["traffic"].at(1).get<uint64_t>()};
    if (o.contains("diag_script")) {
        p.diagScript.emplace();
        if (!StepsFromJson(o["diag_script"], *p.diagScript)) return false;
    }
    if (o.contains("read_buffer_miscompare")) p.readBufferMiscompare = o["read_buffer_miscompare"].get<uint32_t>();
    return true;
}

json LinkErrorsToJson(const SDLinkErrorStatus &e) {
    return {e.LinkFailureCount, e.LossOfSyncCount, e.LossOfSignalCount, e.PrimitiveSeqProtocolErrorCount,
            e.InvalidTransmissionWordCount, e.InvalidCRCCount};
}

SDLinkErrorStatus LinkErrorsFromJson(const json &a) {
    return {a.at(0).get<uint32_t>(), a.at(1).get<uint32_t>(), a.at(2).get<uint32_t>(),
            a.at(3).get<uint32_t>(), a.at(4).get<uint32_t>(), a.at(5).get<uint32_t>()};
}

void TargetsAndClockToJson(const State &s, json &j) {
    if (!s.targets.empty()) {
        json t = json::object();
        for (const auto &[key, c] : s.targets) {
            json o;
            if (c.loggedIn) o["logged_in"] = *c.loggedIn;
            if (c.removed) o["removed"] = *c.removed;
            o["errors"] = LinkErrorsToJson(c.addedErrors);
            t[key] = o;
        }
        j["targets"] = t;
    }
    if (s.clock.frozen || s.clock.offsetNs)
        j["clock"] = {{"frozen", s.clock.frozen}, {"value", s.clock.valueNs}, {"offset", s.clock.offsetNs}};
}

bool TargetsAndClockFromJson(const json &j, State &s) {
    if (j.contains("targets"))
        for (auto it = j["targets"].begin(); it != j["targets"].end(); ++it) {
            TargetChanges c;
            const json &o = it.value();
            if (o.contains("logged_in")) c.loggedIn = o["logged_in"].get<bool>();
            if (o.contains("removed")) c.removed = o["removed"].get<bool>();
            c.addedErrors = LinkErrorsFromJson(o.at("errors"));
            s.targets[it.key()] = c;
        }
    if (j.contains("clock")) {
        const json &c = j["clock"];
        s.clock.frozen = c.at("frozen").get<bool>();
        s.clock.valueNs = c.at("value").get<int64_t>();
        s.clock.offsetNs = c.at("offset").get<int64_t>();
    }
    return true;
}

}  // namespace

std::string StateToJson(const State &s) {
    json j;
    j["format"] = kFormat;
    j["host"] = s.hostHash;
    json ports = json::object();
    for (const auto &[wwpn, p] : s.ports) {
        json o;
        for (int a = 0; a < 2; ++a)
            if (p.nvram[a]) o[a == 0 ? "nvram1" : "nvram2"] = Hex(p.nvram[a]->data(), p.nvram[a]->size());
        if (p.portState) o["state"] = *p.portState;
        if (p.portSubState) o["substate"] = *p.portSubState;
        if (p.statistics) o["statistics"] = Hex(&*p.statistics, sizeof(SDStatistics));
        if (!p.events.empty()) {
            json ev = json::array();
            for (const auto &e : p.events) ev.push_back({e.Code, e.Payload[0], e.Payload[1], e.Payload[2]});
            o["events"] = ev;
        }
        if (p.openFailuresUsed) o["open_failures_used"] = p.openFailuresUsed;
        MonitorFieldsToJson(p, o);
        ports[std::to_string(wwpn)] = o;
    }
    j["ports"] = ports;
    if (s.vports) {
        json v = json::array();
        for (const auto &r : *s.vports)
            v.push_back({{"parent", r.parentWwpn}, {"wwnn", r.wwnn}, {"wwpn", r.wwpn}, {"id", r.vportId},
                         {"qos", {r.qos.QoSType, r.qos.QoSValue, r.qos.QoSEnabled}}});
        j["vports"] = v;
    }
    json flash = json::object();
    for (const auto &[serial, regions] : s.flash) {
        json r = json::object();
        for (const auto &[code, bytes] : regions) r[std::to_string(code)] = Hex(bytes.data(), bytes.size());
        flash[serial] = r;
    }
    j["flash"] = flash;
    j["faults_used"] = s.faultsUsed;
    TargetsAndClockToJson(s, j);
    return j.dump(1);
}

bool StateFromJson(const std::string &text, State &s) {
    try {
        json j = json::parse(text);
        if (j.value("format", 0) != kFormat) return false;
        State out;
        out.hostHash = j.value("host", std::string());
        for (auto it = j.at("ports").begin(); it != j.at("ports").end(); ++it) {
            PortChanges p;
            const json &o = it.value();
            for (int a = 0; a < 2; ++a) {
                const char *key = a == 0 ? "nvram1" : "nvram2";
                if (o.contains(key)) {
                    std::vector<uint8_t> b;
                    if (!Unhex(o[key].get<std::string>(), b)) return false;
                    p.nvram[a] = std::move(b);
                }
            }
            if (o.contains("state")) p.portState = o["state"].get<uint16_t>();
            if (o.contains("substate")) p.portSubState = o["substate"].get<uint16_t>();
            if (o.contains("statistics")) {
                std::vector<uint8_t> b;
                if (!Unhex(o["statistics"].get<std::string>(), b) || b.size() != sizeof(SDStatistics))
                    return false;
                SDStatistics st;
                memcpy(&st, b.data(), sizeof st);
                p.statistics = st;
            }
            if (o.contains("events"))
                for (const auto &e : o["events"])
                    p.events.push_back({e.at(0).get<uint32_t>(),
                                        {e.at(1).get<uint32_t>(), e.at(2).get<uint32_t>(), e.at(3).get<uint32_t>()}});
            p.openFailuresUsed = o.value("open_failures_used", 0u);
            if (!MonitorFieldsFromJson(o, p)) return false;
            out.ports[std::stoull(it.key())] = std::move(p);
        }
        if (j.contains("vports")) {
            std::vector<VPortRecord> v;
            for (const auto &r : j["vports"]) {
                VPortRecord rec;
                rec.parentWwpn = r.at("parent").get<uint64_t>();
                rec.wwnn = r.at("wwnn").get<uint64_t>();
                rec.wwpn = r.at("wwpn").get<uint64_t>();
                rec.vportId = r.at("id").get<uint16_t>();
                rec.qos.VPortId = rec.vportId;
                rec.qos.QoSType = r.at("qos").at(0).get<uint16_t>();
                rec.qos.QoSValue = r.at("qos").at(1).get<uint16_t>();
                rec.qos.QoSEnabled = r.at("qos").at(2).get<uint16_t>();
                v.push_back(rec);
            }
            out.vports = std::move(v);
        }
        for (auto it = j.at("flash").begin(); it != j.at("flash").end(); ++it)
            for (auto r = it.value().begin(); r != it.value().end(); ++r) {
                std::vector<uint8_t> b;
                if (!Unhex(r.value().get<std::string>(), b)) return false;
                out.flash[it.key()][uint32_t(std::stoul(r.key()))] = std::move(b);
            }
        out.faultsUsed = j.at("faults_used").get<std::map<std::string, uint32_t>>();
        if (!TargetsAndClockFromJson(j, out)) return false;
        s = std::move(out);
        return true;
    } catch (const std::exception &) {
        return false;
    }
}

StateStore::StateStore(std::string dir, std::string name, std::string hostHash)
    : dir_(std::move(dir)), hostHash_(std::move(hostHash)) {
    path_ = dir_ + "/" + name;
    lockPath_ = path_ + ".lock";
    state_.hostHash = hostHash_;
}

bool StateStore::fileChanged() {
    struct stat st;
    if (stat(path_.c_str(), &st) != 0) {
        bool had = mtimeNs_ != -1;
        ino_ = 0;
        mtimeNs_ = -1;
        size_ = -1;
        return had;
    }
    int64_t m = int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    if (st.st_ino == ino_ && m == mtimeNs_ && st.st_size == size_) return false;
    ino_ = st.st_ino;
    mtimeNs_ = m;
    size_ = st.st_size;
    return true;
}

void StateStore::load() {
    State fresh;
    fresh.hostHash = hostHash_;
    Fd fd(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (fd.get() >= 0) {
        std::string text;
        char buf[65536];
        ssize_t n;
        while ((n = read(fd.get(), buf, sizeof buf)) > 0) text.append(buf, size_t(n));
        State parsed;
        // A state written for another host content, or damaged, starts over.
        if (StateFromJson(text, parsed) && parsed.hostHash == hostHash_) fresh = std::move(parsed);
    }
    state_ = std::move(fresh);
}

const State &StateStore::current() {
    if (fileChanged()) load();
    return state_;
}

int StateStore::lockFd(bool create) {
    if (create) {
        std::error_code ec;
        std::filesystem::create_directories(dir_, ec);
    }
    int fd = open(lockPath_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | (create ? O_CREAT : 0), 0600);
    if (fd < 0) return -1;
    while (flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            close(fd);
            return -1;
        }
    }
    return fd;
}

uint32_t StateStore::write(const State &s) {
    std::string tmp = path_ + ".tmp." + std::to_string(getpid());
    unlink(tmp.c_str());
    Fd fd(open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (fd.get() < 0) return SDERR_IO_FAILED;
    if (!WriteAll(fd.get(), StateToJson(s)) || fsync(fd.get()) != 0 ||
        rename(tmp.c_str(), path_.c_str()) != 0) {
        unlink(tmp.c_str());
        return SDERR_IO_FAILED;
    }
    return SDERR_NONE;
}

uint32_t StateStore::modify(const std::function<uint32_t(State &)> &change) {
    Fd lock(lockFd(true));
    if (lock.get() < 0) return SDERR_IO_FAILED;
    fileChanged();
    load();
    State next = state_;
    uint32_t rc = change(next);
    if (rc != SDERR_NONE) return rc;
    rc = write(next);
    if (rc == SDERR_NONE) {
        state_ = std::move(next);
        fileChanged();
    }
    return rc;
}

uint32_t StateStore::reset() {
    Fd lock(lockFd(true));
    if (lock.get() < 0) return SDERR_IO_FAILED;
    if (unlink(path_.c_str()) != 0 && errno != ENOENT) return SDERR_IO_FAILED;
    state_ = State{};
    state_.hostHash = hostHash_;
    fileChanged();
    return SDERR_NONE;
}

}  // namespace vtsdm

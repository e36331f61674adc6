#include "state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "backend.h"
#include "json_teardown.h"
#include "state_files.h"

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
    return {e.LinkFailureCount,
            e.LossOfSyncCount,
            e.LossOfSignalCount,
            e.PrimitiveSeqProtocolErrorCount,
            e.InvalidTransmissionWordCount,
            e.InvalidCRCCount};
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
    DismantleOnExit dismantle(j);
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
            o["events"] = std::move(ev);
        }
        if (p.eventsDropped) o["events_dropped"] = p.eventsDropped;
        if (p.openFailuresUsed) o["open_failures_used"] = p.openFailuresUsed;
        if (p.stateFlags) o["flags"] = *p.stateFlags;
        if (p.nvramReadFaults) o["nvram_read_faults"] = *p.nvramReadFaults;
        if (p.nvramWriteFaults) o["nvram_write_faults"] = *p.nvramWriteFaults;
        if (p.appliedNvram) o["nvram_applied"] = Hex(p.appliedNvram->data(), p.appliedNvram->size());
        if (p.globalNvram) o["global_nvram"] = Hex(p.globalNvram->data(), p.globalNvram->size());
        MonitorFieldsToJson(p, o);
        ports[std::to_string(wwpn)] = std::move(o);
    }
    j["ports"] = std::move(ports);
    if (s.vports) {
        json v = json::array();
        for (const auto &r : *s.vports)
            v.push_back({{"parent", r.parentWwpn},
                         {"wwnn", r.wwnn},
                         {"wwpn", r.wwpn},
                         {"id", r.vportId},
                         {"qos", {r.qos.QoSType, r.qos.QoSValue, r.qos.QoSEnabled}},
                         {"instance", r.instance}});
        j["vports"] = std::move(v);
    }
    json flash = json::object();
    for (const auto &[serial, regions] : s.flash) {
        json r = json::object();
        for (const auto &[code, bytes] : regions) r[std::to_string(code)] = Hex(bytes.data(), bytes.size());
        flash[serial] = std::move(r);
    }
    j["flash"] = std::move(flash);
    j["faults_used"] = s.faultsUsed;
    if (!s.flashCards.empty()) {
        json cards = json::object();
        for (const auto &[serial, f] : s.flashCards)
            cards[serial] = {
                {"reboot_required", f.rebootRequired}, {"read_faults", f.readFaults}, {"write_faults", f.writeFaults}};
        j["flash_cards"] = cards;
    }
    if (!s.sfp.empty()) {
        json f = json::object();
        for (const auto &[wwpn, fw] : s.sfp) f[std::to_string(wwpn)] = {{"version", fw.version}, {"sum", fw.codeSum}};
        j["sfp"] = f;
    }
    if (!s.vportCreateFaults.empty()) {
        json f = json::object();
        for (const auto &[wwpn, n] : s.vportCreateFaults) f[std::to_string(wwpn)] = n;
        j["vport_create_faults"] = f;
    }
    TargetsAndClockToJson(s, j);
    return j.dump(1);
}

bool StateFromJson(const std::string &text, State &s, std::string *error) {
    try {
        json j = json::parse(text);
        DismantleOnExit dismantle(j);
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
                if (!Unhex(o["statistics"].get<std::string>(), b) || b.size() != sizeof(SDStatistics)) return false;
                SDStatistics st;
                memcpy(&st, b.data(), sizeof st);
                p.statistics = st;
            }
            p.eventsDropped = o.value("events_dropped", uint64_t(0));
            if (o.contains("events"))
                for (const auto &e : o["events"])
                    QueueEvent(p, {e.at(0).get<uint32_t>(),
                                   {e.at(1).get<uint32_t>(), e.at(2).get<uint32_t>(), e.at(3).get<uint32_t>()}});
            p.openFailuresUsed = o.value("open_failures_used", 0u);
            if (o.contains("flags")) p.stateFlags = o["flags"].get<uint32_t>();
            if (o.contains("nvram_read_faults")) p.nvramReadFaults = o["nvram_read_faults"].get<uint32_t>();
            if (o.contains("nvram_write_faults")) p.nvramWriteFaults = o["nvram_write_faults"].get<uint32_t>();
            for (const auto &[key, field] :
                 {std::pair{"nvram_applied", &p.appliedNvram}, std::pair{"global_nvram", &p.globalNvram}})
                if (o.contains(key)) {
                    std::vector<uint8_t> b;
                    if (!Unhex(o[key].get<std::string>(), b)) return false;
                    *field = std::move(b);
                }
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
                rec.instance = r.value("instance", 0u);
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
        if (j.contains("flash_cards"))
            for (auto it = j["flash_cards"].begin(); it != j["flash_cards"].end(); ++it) {
                CardFlashChanges &f = out.flashCards[it.key()];
                f.rebootRequired = it.value().at("reboot_required").get<bool>();
                f.readFaults = it.value().at("read_faults").get<uint32_t>();
                f.writeFaults = it.value().at("write_faults").get<uint32_t>();
            }
        if (j.contains("sfp"))
            for (auto it = j["sfp"].begin(); it != j["sfp"].end(); ++it)
                out.sfp[std::stoull(it.key())] = {it.value().at("version").get<std::array<uint8_t, 3>>(),
                                                  it.value().at("sum").get<uint32_t>()};
        if (j.contains("vport_create_faults"))
            for (auto it = j["vport_create_faults"].begin(); it != j["vport_create_faults"].end(); ++it)
                out.vportCreateFaults[std::stoull(it.key())] = it.value().get<uint32_t>();
        if (!TargetsAndClockFromJson(j, out)) return false;
        s = std::move(out);
        return true;
    } catch (const std::bad_alloc &) {
        throw;  // not damage: the caller's call fails instead
    } catch (const std::exception &e) {
        if (error) *error = e.what();
        return false;
    }
}

void QueueEvent(PortChanges &p, const SDAenRecord &event) {
    if (p.events.size() >= kEventQueueDepth) {
        const size_t drop = p.events.size() - kEventQueueDepth + 1;
        p.events.erase(p.events.begin(), p.events.begin() + ptrdiff_t(drop));
        p.eventsDropped += drop;
    }
    p.events.push_back(event);
}

std::vector<SDAenRecord> TakeEvents(PortChanges &p, size_t room) {
    const size_t n = std::min(room, p.events.size());
    std::vector<SDAenRecord> out(p.events.begin(), p.events.begin() + ptrdiff_t(n));
    p.events.erase(p.events.begin(), p.events.begin() + ptrdiff_t(n));
    return out;
}

StateStore::StateStore(std::string dir, std::string name, std::string hostHash)
    : dir_(std::move(dir)), hostHash_(std::move(hostHash)) {
    path_ = dir_ + "/" + name;
    lockPath_ = path_ + ".lock";
    state_.hostHash = hostHash_;
}

bool StateStore::fileChanged() {
    struct stat st;
    if (lstat(path_.c_str(), &st) != 0) {
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

bool StateStore::load(bool locked) {
    state_ = State{};
    state_.hostHash = hostHash_;
    if (!directoryUsable()) return false;
    std::string why;
    Fd fd(statefiles::OpenOwnFile(path_, O_RDONLY, 0, why));
    if (!why.empty()) {
        refuse("state file " + why + " (vtsdm-sim reset removes it)");
        return false;
    }
    refused_.clear();
    if (fd.get() < 0) return true;  // nothing changed yet
    std::string text;
    char buf[65536];
    ssize_t n;
    while ((n = read(fd.get(), buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0) text.append(buf, size_t(n));
    State parsed;
    std::string error;
    if (!StateFromJson(text, parsed, &error)) {
        keepDamaged(text.empty() ? "it is empty" : error, locked);
        return true;
    }
    // A state written for another content of the host file starts over.
    if (parsed.hostHash == hostHash_) state_ = std::move(parsed);
    return true;
}

// Moves a damaged state file aside, under the lock, unless another process
// has replaced it meanwhile; the host then starts from its host file.
void StateStore::keepDamaged(const std::string &error, bool locked) {
    const ino_t ino = ino_;
    const off_t size = size_;
    const int64_t mtime = mtimeNs_;
    Fd lock(locked ? -1 : lockFd(true));
    std::string kept;
    if (locked || lock.get() >= 0) {
        struct stat st;
        if (lstat(path_.c_str(), &st) != 0 || st.st_ino != ino || st.st_size != size ||
            int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec != mtime)
            return;  // replaced by another process: what it wrote is read next time
        kept = statefiles::KeepAside(path_);
    }
    Notice("state file " + path_ + " is damaged (" + error + "); " +
           (kept.empty() ? std::string("it could not be moved aside") : "kept as " + kept) +
           "; the simulated host starts from its host file");
}

bool StateStore::directoryUsable() {
    const std::string why = statefiles::UnsafeDirectory(dir_);
    if (!why.empty()) refuse("state directory " + dir_ + " is " + why);
    return why.empty();
}

void StateStore::refuse(const std::string &why) {
    if (why == refused_) return;
    refused_ = why;
    Notice(why + "; not used: the simulated host runs from its host file and no change is kept");
}

const State &StateStore::current() {
    if (fileChanged()) {
        try {
            load(false);
        } catch (...) {
            forget();  // read it again next time
            throw;
        }
    }
    return state_;
}

void StateStore::forget() {
    ino_ = 0;
    mtimeNs_ = -2;
    size_ = -2;
}

int StateStore::lockFd(bool create) {
    if (create) {
        std::error_code ec;
        std::filesystem::create_directories(dir_, ec);
    }
    if (!directoryUsable()) return -1;
    // Another user's lock file would let that user hold every writer.
    std::string why;
    int fd = statefiles::OpenOwnFile(lockPath_, O_RDWR | (create ? O_CREAT : 0), 0600, why);
    if (fd < 0) {
        if (!why.empty()) refuse("state lock file " + why);
        return -1;
    }
    while (flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            close(fd);
            return -1;
        }
    }
    return fd;
}

uint32_t StateStore::write(const State &s) {
    statefiles::RemoveStaleTemporaries(dir_, std::filesystem::path(path_).filename().string());
    std::string tmp = path_ + ".tmp." + std::to_string(getpid());
    Fd fd(open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (fd.get() < 0) return SDERR_IO_FAILED;
    if (!WriteAll(fd.get(), StateToJson(s)) || fsync(fd.get()) != 0 || rename(tmp.c_str(), path_.c_str()) != 0) {
        unlink(tmp.c_str());
        return SDERR_IO_FAILED;
    }
    return SDERR_NONE;
}

uint32_t StateStore::modify(const std::function<uint32_t(State &)> &change) {
    Fd lock(lockFd(true));
    if (lock.get() < 0) return SDERR_IO_FAILED;
    fileChanged();
    State next;
    try {
        if (!load(true)) return SDERR_IO_FAILED;
        next = state_;
    } catch (...) {
        forget();
        throw;
    }
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
    refused_.clear();
    state_ = State{};
    state_.hostHash = hostHash_;
    fileChanged();
    return SDERR_NONE;
}

}  // namespace vtsdm

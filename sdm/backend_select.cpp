// Which backend answers the SD... calls, and the process-wide instance of it.
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <new>

#include "backend.h"
#include "linux/linux_backend.h"
#include "sim/sim_transport.h"
#include "sim/simulator.h"
#include "sysroot.h"

namespace vtsdm {

std::string InstallationDir() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&InstallationDir), &info) == 0 || info.dli_fname == nullptr) return ".";
    std::string self = info.dli_fname;
    auto pos = self.rfind("/lib64/");
    if (pos == std::string::npos) {
        // Linked into a program rather than loaded as a library.
        char exe[4096];
        ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
        if (n <= 0) return ".";
        self.assign(exe, size_t(n));
        pos = self.rfind("/lib64/");
    }
    if (pos != std::string::npos) return pos == 0 ? "/" : self.substr(0, pos);
    // Linked into a program: <dir>/bin/program -> <dir>.
    std::filesystem::path p(self);
    return p.parent_path().parent_path().string();
}

std::string ConfiguredBackend(const std::string &text) {
    std::string value;
    // Not through a stream: a stream would swallow an allocation failure.
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        at = end + 1;
        if (auto hash = line.find('#'); hash != std::string::npos) line.erase(hash);
        auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        auto trim = [](std::string s) {
            while (!s.empty() && isspace(static_cast<unsigned char>(s.back()))) s.pop_back();
            size_t i = 0;
            while (i < s.size() && isspace(static_cast<unsigned char>(s[i]))) ++i;
            return s.substr(i);
        };
        if (trim(line.substr(0, eq)) == "backend") value = trim(line.substr(eq + 1));
    }
    return value;
}

namespace {

bool HasFcHosts() {
    const std::string dir = vt::MapSystemPath("/sys/class/fc_host");
    DIR *d = opendir(dir.c_str());
    if (!d) return false;
    bool found = false;
    while (dirent *e = readdir(d))
        if (e->d_name[0] != '.') {
            found = true;
            break;
        }
    closedir(d);
    return found;
}

bool KindFromName(const std::string &name, BackendKind &kind) {
    if (name == "sim") kind = BackendKind::Sim;
    else if (name == "linux") kind = BackendKind::Linux;
    else return false;
    return true;
}

}  // namespace

BackendChoice ChooseBackend() {
    BackendChoice choice;
    if (const char *env = getenv("VTSDM_BACKEND"); env && *env) {
        if (KindFromName(env, choice.kind)) {
            choice.reason = "VTSDM_BACKEND";
            return choice;
        }
        if (std::string(env) != "auto")
            choice.warning = std::string("VTSDM_BACKEND=") + env + " is not sim, linux or auto; ignored";
    }
    const std::string conf = InstallationDir() + "/data/vtsdm.conf";
    if (std::string text; ReadTextFile(conf, text)) {
        const std::string name = ConfiguredBackend(text);
        if (KindFromName(name, choice.kind)) {
            choice.reason = "vtsdm.conf";
            return choice;
        }
        if (!name.empty() && name != "auto" && choice.warning.empty())
            choice.warning = conf + ": backend = " + name + " is not sim, linux or auto; ignored";
    }
    if (HasFcHosts()) {
        choice.kind = BackendKind::Linux;
        choice.reason = "detected";
    } else {
        choice.kind = BackendKind::Sim;
        choice.reason = "default";
    }
    return choice;
}

namespace {

std::unique_ptr<Backend> MakeBackend(BackendKind kind) {
    if (kind == BackendKind::Sim) return std::make_unique<Simulator>(DefaultHostPath(), DefaultStateDir());
    // A tree exported from the simulator has no devices to send SCSI
    // commands to; the simulator answers them.  Only ever under a private
    // root: the machine's own tree always goes to the SCSI generic devices.
    std::unique_ptr<linuxfc::ScsiTransport> transport;
    if (getenv("VTAPI_SYSROOT") && *getenv("VTAPI_SYSROOT")) transport = MakeExportTransport();
    if (!transport) transport = linuxfc::MakeSgTransport();
    return std::make_unique<linuxfc::LinuxBackend>(std::move(transport));
}

std::recursive_mutex g_lock;
std::unique_ptr<Backend> g_backend;
uint64_t g_generation = 0;
std::string g_error;
bool g_reported = false;

// The environment the backend was made under; a change makes it again.
struct EnvKey {
    static constexpr const char *kNames[] = {"VTSDM_BACKEND", "VTSDM_HOST", "VTSDM_STATE_DIR", "VTAPI_SYSROOT"};
    std::string values[4];
    bool changed() const {
        for (size_t i = 0; i < 4; ++i) {
            const char *v = getenv(kNames[i]);
            if (values[i] != (v ? v : "")) return true;
        }
        return false;
    }
    void take() {
        for (size_t i = 0; i < 4; ++i) {
            const char *v = getenv(kNames[i]);
            values[i] = v ? v : "";
        }
    }
};
EnvKey g_env;

void Drop() {
    g_backend.reset();
    g_error.clear();
    g_reported = false;
    ++g_generation;
}

}  // namespace

BackendAccess AcquireBackend() {
    std::unique_lock<std::recursive_mutex> lock(g_lock);
    if ((g_backend || !g_error.empty()) && g_env.changed()) Drop();
    if (!g_backend && g_error.empty()) {
        g_env.take();
        const BackendChoice choice = ChooseBackend();
        if (!choice.warning.empty()) fprintf(stderr, "vtsdm: %s\n", choice.warning.c_str());
        try {
            g_backend = MakeBackend(choice.kind);
        } catch (const std::bad_alloc &) {
            throw;  // the call fails; the next one tries again
        } catch (const std::exception &e) {
            g_error = e.what();
        }
    }
    if (!g_backend && !g_reported) {
        g_reported = true;
        fprintf(stderr, "vtsdm: %s\n", g_error.c_str());
    }
    return BackendAccess{std::move(lock), g_backend.get(), g_generation};
}

std::string BackendError() {
    std::lock_guard<std::recursive_mutex> lock(g_lock);
    return g_error;
}

void UnloadBackend() {
    std::lock_guard<std::recursive_mutex> lock(g_lock);
    Drop();
}

}  // namespace vtsdm

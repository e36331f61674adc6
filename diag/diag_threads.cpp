// The loopback and read/write buffer tests on several ports at once, a
// worker thread per port, with their progress on screen and ENTER to stop.
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "diag.h"
#include "diag_internal.h"
#include "core/core.h"
#include "oss/oss.h"

namespace vt::diag {

std::string WwnText(const uint8_t *w) {
    char text[24];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", w[0], w[1], w[2], w[3], w[4], w[5], w[6],
             w[7]);
    return text;
}

WorkerPort::WorkerPort(const SDMDevice &device, bool withTargets) : device_(device) {
    device_.next = device_.prev = nullptr;
    device_.DeviceHandle = 0;
    device_.Targets = TargetList{};
    if (!withTargets) return;
    // The targets without their LUNs, which no test or monitor looks at.
    for (const TargetEntry *t = device.Targets.First; t; t = t->next) {
        TargetEntry *copy = CreateNewTarget();
        if (!copy) break;
        const LunList empty = copy->Luns;
        *copy = *t;
        copy->Luns = empty;
        copy->next = nullptr;
        if (device_.Targets.Last) device_.Targets.Last->next = copy;
        else device_.Targets.First = copy;
        device_.Targets.Last = copy;
        ++device_.Targets.Count;
    }
}

WorkerPort::~WorkerPort() {
    if (device_.DeviceHandle) SDCloseDevice(device_.DeviceHandle);
    FreeTargetList(&device_.Targets);
}

bool WorkerPort::open() {
    uint32_t handle = 0;
    const uint32_t rc = SDOpenDevice(device_.Instance, &handle);
    if (rc != SDERR_NONE) {
        LogDebug(__FILE__, __LINE__, "WorkerPort: SDOpenDevice(%u) failed (0x%x) (%s)", device_.Instance, rc,
                 SDGetErrorString(rc));
        return false;
    }
    device_.DeviceHandle = handle;
    return true;
}

std::vector<uint32_t> Instances(SDMDevice *const *ports, uint32_t count) {
    std::vector<uint32_t> out;
    for (uint32_t i = 0; i < count; ++i) out.push_back(ports[i]->Instance);
    return out;
}

// Lines the workers hand to the calling thread, which prints them.
void ScreenQueue::push(std::string line) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(std::move(line));
}

void ScreenQueue::flush() {
    std::vector<std::string> lines;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lines.swap(lines_);
    }
    for (const std::string &l : lines) Print("%s", l.c_str());
}

}  // namespace vt::diag

namespace {

using vt::diag::Print;
using vt::diag::WwnText;

bool PortsGiven(SDMDevice *const *ports, uint32_t count) {
    if (ports && count)
        for (uint32_t i = 0; i < count; ++i)
            if (!ports[i]) return false;
    if (ports && count) return true;
    Print("No compatible HBA(s) found in current system\n");
    return false;
}

std::string RunLine(const SDMDevice &port, uint32_t run, const DiagLoopbackResult &r) {
    char line[256];
    snprintf(line, sizeof line, "%-23s %6u %-16s %9u %15u %18u\n", WwnText(port.DevicePortProperty.WWPN).c_str(), run,
             r.TestStatus, r.CrcErrors, r.DisparityErrors, r.FrameLengthErrors);
    std::string out = line;
    if (!vt::diag::RunPassed(r) && r.Text[0]) {
        std::string text = r.Text;
        while (!text.empty() && text.back() == '\n') text.pop_back();
        out += "        " + text + "\n";
    }
    return out;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t CreateLoopbackThreadTest(SDMDevice *const *ports, uint32_t count, VTAPI_DiagResult *results) {
    if (!PortsGiven(ports, count) || !results) return vt::diag::kNoAdapter;
    std::vector<DiagRequest> requests(count);
    std::vector<vt::diag::WorkerPort> workers;
    workers.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        CopyUserDiagnosticsDataToDiagTable(ports[i], &requests[i], DIAG_TEST_LOOPBACK);
        workers.emplace_back(*ports[i], false);
        results[i] = VTAPI_DiagResult{};
    }
    Print("\nDiagnostics - Loopback Test (press ENTER to stop)\n\n");
    Print("Port Name                  Run Test Status      CRC Error Disparity Error Frame Length Error\n");
    Print("----------------------- ------ ---------------- --------- --------------- ------------------\n");

    vt::diag::ScreenQueue screen;
    std::vector<uint32_t> status(count, VTAPI_SUCCESS);
    vt::diag::Session session(count, vt::diag::Instances(ports, count));
    const bool started = session.start([&](size_t i) {
        vt::diag::WorkerPort &port = workers[i];
        VTAPI_DiagResult &result = results[i];
        if (isVirtualPortHBA(&port.device())) {
            snprintf(result.LastRun.TestStatus, sizeof result.LastRun.TestStatus, "Not Supported");
            snprintf(result.LastRun.Text, sizeof result.LastRun.Text,
                     "Loopback test is not supported on a virtual port");
            screen.push(WwnText(port.device().DevicePortProperty.WWPN) +
                        ": loopback test is not supported on a virtual port\n");
            status[i] = VTAPI_NOT_SUPPORTED_ON_VPORT;
            return;
        }
        if (!port.open()) {
            snprintf(result.LastRun.TestStatus, sizeof result.LastRun.TestStatus, "DevNotFound");
            status[i] = VTAPI_PORT_NOT_FOUND;
            return;
        }
        uint32_t run = 0;
        status[i] = vt::diag::RunLoopback(port.device(), requests[i], result, [&](const DiagLoopbackResult &r) {
            screen.push(RunLine(port.device(), ++run, r));
        });
        LogDebug(__FILE__, __LINE__, "CreateLoopbackThreadTest: worker of instance %u finished",
                 port.device().Instance);
    });
    if (!started) return VTAPI_GENERAL_FAILURE;
    session.wait([](int32_t key) { return key == '\n'; }, [&] { screen.flush(); });

    uint32_t first = VTAPI_SUCCESS;
    Print("\n");
    for (uint32_t i = 0; i < count; ++i) {
        const VTAPI_DiagResult &r = results[i];
        Print("Port %s: %u run(s), %u failed, %llu iteration(s)%s\n",
              WwnText(ports[i]->DevicePortProperty.WWPN).c_str(), r.RunsDone, r.RunsFailed,
              static_cast<unsigned long long>(r.IterationsDone), r.Aborted ? ", stopped" : "");
        if (first == VTAPI_SUCCESS) first = status[i];
    }
    return first;
}

VTAPI_EXPORT uint32_t CreateReadWriteBufferThreadTest(SDMDevice *const *ports, uint32_t count,
                                                      VTAPI_RWBufferTestResultList *results) {
    if (!PortsGiven(ports, count) || !results) return vt::diag::kNoAdapter;
    std::vector<DiagRequest> requests(count);
    std::vector<vt::diag::WorkerPort> workers;
    workers.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        CopyUserDiagnosticsDataToDiagTable(ports[i], &requests[i], DIAG_TEST_READ_WRITE_BUFFER);
        workers.emplace_back(*ports[i], true);
        results[i] = VTAPI_RWBufferTestResultList{};
    }
    Print("\nDiagnostics - Read/Write Buffer Test (press ENTER to stop)\n\n");
    Print("Port Name               Target Port Name        Loop ID/Status       Runs Data Miscompare\n");
    Print("----------------------- ----------------------- -------------------- ---- ---------------\n");

    vt::diag::ScreenQueue screen;
    std::vector<uint32_t> status(count, VTAPI_SUCCESS);
    vt::diag::Session session(count, vt::diag::Instances(ports, count));
    const bool started = session.start([&](size_t i) {
        vt::diag::WorkerPort &port = workers[i];
        if (!port.open()) {
            status[i] = VTAPI_PORT_NOT_FOUND;
            return;
        }
        const std::string name = WwnText(port.device().DevicePortProperty.WWPN);
        status[i] = vt::diag::RunReadWriteBuffer(
            port.device(), requests[i], results[i], [&](const VTAPI_RWBufferTestResult &e) {
                char line[160];
                snprintf(line, sizeof line, "%-23s %-23s %4u/%-15s %4u %15u\n", name.c_str(),
                         WwnText(e.TargetWWPN).c_str(), e.LoopId, e.Status, e.RunsDone, e.DataMiscompares);
                screen.push(line);
            });
    });
    if (!started) return VTAPI_GENERAL_FAILURE;
    session.wait([](int32_t key) { return key == '\n'; }, [&] { screen.flush(); });

    Print(
        "\nPort Name               Target Port Name        Loop ID/Status       Data Miscompare "
        "Link Failure Loss of Sync Loss of Signal Invalid CRC\n");
    uint32_t first = VTAPI_SUCCESS;
    for (uint32_t i = 0; i < count; ++i) {
        const std::string name = WwnText(ports[i]->DevicePortProperty.WWPN);
        for (const VTAPI_RWBufferTestResult *e = results[i].First; e; e = e->next) {
            Print("%-23s %-23s %4u/%-15s %15u %12u %12u %14u %11u\n", name.c_str(), WwnText(e->TargetWWPN).c_str(),
                  e->LoopId, e->Status, e->DataMiscompares, e->LinkFailureCount, e->LossOfSyncCount,
                  e->LossOfSignalCount, e->InvalidCRCCount);
            if (e->Text[0] && strcmp(e->Status, "Success") != 0) Print("        %s\n", e->Text);
        }
        if (first == VTAPI_SUCCESS) first = status[i];
    }
    return first;
}

}  // extern "C"

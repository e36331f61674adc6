// The command-line layer's lists that FreeMyDeviceList empties, in the order
// in which it empties them.  GetMyDeviceList and the AdapterList, which the
// core keeps itself, are emptied between BoardTemperatures and
// UserVPortOptions; the user's vPort options only by FreeMyDeviceList(all)
// with all non-zero.  The code that keeps one of these lists sets the
// function that empties it; a list without one is not kept by this build.
#pragma once

namespace vt::core {

enum class TarnList {
    DisabledDiagnostics,
    PersistentDevices,
    SetFeatureResults,
    GetFeatureResults,
    BeaconTargets,
    HbaStatistics,
    LoopbackResults,
    ReadWriteBufferResults,
    BoardTemperatures,
    UserVPortOptions,
    UserVSANs,
    UserOptionRomRequests,
    QoSLuns,
};

using TarnListRelease = void (*)();

// Sets (or, with nullptr, clears) the function that empties `list`.
void SetTarnListRelease(TarnList list, TarnListRelease release);

}  // namespace vt::core

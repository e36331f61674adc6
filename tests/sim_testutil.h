// Tests of the simulated host: a host description written into the test's
// own system root and chosen for this process (and the processes it starts
// with VTSDM_HOST) until the test ends.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "backend.h"
#include "testutil.h"

namespace vttest {

class SimHostTest : public ::testing::Test {
protected:
    void TearDown() override {
        vtsdm::UnloadBackend();
        unsetenv("VTSDM_HOST");
    }
    // The simulator starts again from this host at its next call.
    void UseHost(const std::string &json) {
        hostFile_ = root_.path("/host.json");
        WriteFile(hostFile_, json);
        setenv("VTSDM_HOST", hostFile_.c_str(), 1);
        vtsdm::UnloadBackend();
    }

    SysrootScope root_;
    std::string hostFile_;
};

}  // namespace vttest

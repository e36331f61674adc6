#include <gtest/gtest.h>

#include <cstdlib>

#include "sysroot.h"

TEST(Sysroot, PrefixesAbsolutePathsOnlyWhenSet) {
    unsetenv("VTAPI_SYSROOT");
    EXPECT_EQ(vt::MapSystemPath("/etc/hba.conf"), "/etc/hba.conf");
    setenv("VTAPI_SYSROOT", "", 1);
    EXPECT_EQ(vt::MapSystemPath("/etc/hba.conf"), "/etc/hba.conf");
    setenv("VTAPI_SYSROOT", "/tmp/root//", 1);
    EXPECT_EQ(vt::MapSystemPath("/etc/hba.conf"), "/tmp/root/etc/hba.conf");
    EXPECT_EQ(vt::MapSystemPath("relative/file"), "relative/file");
    EXPECT_EQ(vt::MapSystemPath(""), "");
    setenv("VTAPI_SYSROOT", "/", 1);
    EXPECT_EQ(vt::MapSystemPath("/var/tmp/vtapi.log"), "/var/tmp/vtapi.log");
    unsetenv("VTAPI_SYSROOT");
}

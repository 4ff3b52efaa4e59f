// Unloading with the camera open: the system lets the library stop and join its thread meanwhile.
#include "DefaultsTest.h"

namespace {

TEST_F(Defaults, ModuleIsNotHeldAndUnloadsWhileTheCameraIsOpen) {
  QueryAndOpen();
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
  EXPECT_THAT(platform.Alive(), ::testing::ElementsAre("current media type"));
}

}  // namespace

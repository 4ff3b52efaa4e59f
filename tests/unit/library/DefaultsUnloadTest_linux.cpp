// Unloading with the camera open, when the system lets the library stop and join its thread meanwhile, and as
// the way out of an open that not even a close can undo.
#include "DefaultsTest.h"

namespace {

TEST_F(Defaults, ModuleIsNotHeldAndUnloadsWhileTheCameraIsOpen) {
  QueryAndOpen();
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
  EXPECT_THAT(platform.Alive(), ::testing::ElementsAre("current media type"));
}

TEST_F(Defaults, LibraryLoadedAnewOpensAfterAnOpenThatCouldNotMakeAGraph) {
  const NUVEQCameraParam param{"0", 1, 640, 480, 30};
  platform.AnswersNth("CoCreateInstance", 1, scripted::Fails());
  ASSERT_EQ(handler.OpenCameraDevice(&param), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(handler.CloseCameraDevice("0", 1), 0);
  EXPECT_EQ(handler.OpenCameraDevice(&param), NUVEQ_CAMERA_ENCODER_FAILED);
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
  EXPECT_THAT(platform.Alive(), ::testing::IsEmpty());

  LoadedLibrary again(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(again.GetCameraHandler(&handler), 0);
  QueryAndOpen();
  EXPECT_EQ(handler.CloseCameraDevice("0", 1), 1);
}

}  // namespace

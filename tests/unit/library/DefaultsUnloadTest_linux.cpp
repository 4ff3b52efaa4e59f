// Unloading on Linux: while the camera is open, and to recover from an open that a close cannot undo.
#include "DefaultsTest.h"

namespace {

using support::LoadedLibrary;

TEST_F(Defaults, ModuleUnloadsWhileTheCameraIsOpen) {
  QueryAndOpen();
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
  EXPECT_THAT(platform.Alive(), ::testing::ElementsAre("current media type"));
}

TEST_F(Defaults, ReloadRecoversFromFailedGraphCreation) {
  platform.AnswersNth("CoCreateInstance", 1, scripted::Fails());
  ASSERT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(Close(), 0);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
  EXPECT_THAT(platform.Alive(), ::testing::IsEmpty());

  LoadedLibrary again(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(again.GetCameraHandler(&handler), 0);
  QueryAndOpen();
  EXPECT_EQ(Close(), 1);
}

}  // namespace

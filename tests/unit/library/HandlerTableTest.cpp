// The exported function and the handler table: contents, arguments and results.
#include <cstring>

#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::HostCallbacks;
using support::LoadedLibrary;

using HandlerTable = CameraHandlerTest;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST_F(HandlerTable, NullTableIsRefused) {
  Unload();
  LoadedLibrary fresh(NUVEQ_LIBRARY_FILE);
  platform.ClearJournal();
  EXPECT_EQ(fresh.GetCameraHandler(nullptr), -2);
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

TEST_F(HandlerTable, FillingTheTableCreatesNoOperator) {
  Unload();
  LoadedLibrary fresh(NUVEQ_LIBRARY_FILE);
  const unsigned created = platform.CallCount("CoInitialize");
  NUVEQCameraHandler first{};
  NUVEQCameraHandler second{};
  EXPECT_EQ(fresh.GetCameraHandler(&first), 0);
  EXPECT_EQ(fresh.GetCameraHandler(&second), 0);
  EXPECT_EQ(std::memcmp(&first, &second, sizeof(first)), 0);
  EXPECT_EQ(platform.CallCount("CoInitialize"), created);
}

TEST_F(HandlerTable, EverySlotIsFilled) {
  EXPECT_NE(handler.RegisterSendDataCallback, nullptr);
  EXPECT_NE(handler.OpenCameraDevice, nullptr);
  EXPECT_NE(handler.CloseCameraDevice, nullptr);
  EXPECT_NE(handler.Reserved3, nullptr);
  EXPECT_NE(handler.GetCapability, nullptr);
  EXPECT_NE(handler.Reserved5, nullptr);
  EXPECT_NE(handler.ReleaseCapability, nullptr);
  EXPECT_NE(handler.RegisterServiceListener, nullptr);
  EXPECT_NE(handler.Reserved8, nullptr);
}

TEST_F(HandlerTable, ReservedFunctionsReturnZeroForAnyArguments) {
  platform.ClearJournal();
  int something = 1;
  EXPECT_EQ(handler.Reserved3(nullptr, 0, 0, nullptr), 0);
  EXPECT_EQ(handler.Reserved3(&something, 1, 0xFFFFFFFF, &something), 0);
  EXPECT_EQ(handler.Reserved5(nullptr), 0);
  EXPECT_EQ(handler.Reserved5(&something), 0);
  EXPECT_EQ(handler.Reserved8(0, nullptr, 0, nullptr), 0);
  EXPECT_EQ(handler.Reserved8(0xFFFFFFFF, &something, 1, &something), 0);
  EXPECT_THAT(platform.Journal(), IsEmpty());
}

TEST_F(HandlerTable, NullDataCallbackIsRefusedAndTheEarlierOneKept) {
  EXPECT_EQ(handler.RegisterSendDataCallback(nullptr, 0, nullptr), -2);
  QueryAndOpen();
  DeliverAndReceive(1);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(HandlerTable, FirstTwoArgumentsOfRegisterSendDataCallbackAreIgnored) {
  int something = 1;
  EXPECT_EQ(handler.RegisterSendDataCallback(&something, 0xFFFFFFFF, &HostCallbacks::OnData), 0);
  EXPECT_EQ(handler.RegisterSendDataCallback(&something, 7, nullptr), -2);
}

TEST_F(HandlerTable, NullListenerIsRefusedAndTheEarlierOneKept) {
  EXPECT_EQ(handler.RegisterServiceListener(nullptr), -2);
  QueryAndOpen();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 4"));
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3"));
}

TEST_F(HandlerTable, ListenerOfNullCallbacksDisablesBothReports) {
  const NUVEQServiceListener nobody{nullptr, nullptr};
  EXPECT_EQ(handler.RegisterServiceListener(&nobody), 0);
  QueryAndOpen();
  EXPECT_EQ(Open("1"), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  platform.SetPc({});
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  EXPECT_THAT(platform.Journal(), Not(Contains(HasSubstr("callback"))));
  EXPECT_THAT(platform.Journal(), Not(Contains(HasSubstr("driver error"))));
}

TEST_F(HandlerTable, ReleaseOfNullHasNoEffect) {
  platform.ClearJournal();
  handler.ReleaseCapability(0, nullptr, 5);
  EXPECT_THAT(platform.Journal(), IsEmpty());
}

}  // namespace

// Invalid arguments of the host, and callbacks that misbehave.
#include <atomic>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <thread>

#include "support/CameraHandlerTest.h"
#include "support/GuardPageBuffer.h"

namespace {

using support::CameraHandlerTest;
using support::Frame;
using support::Gate;
using support::GuardPageBuffer;
using support::HostCallbacks;
using support::kFrameSize;
using support::kSmallFrameSize;
using support::Packet;
using support::WaitFor;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();

class InvalidInputFromHost : public CameraHandlerTest {
 protected:
  void OpenListed() {
    QueryAndRelease();
    ASSERT_EQ(Open(), 0);
  }
  // Checks that a whole session works.
  void ExpectASoundSession() {
    ASSERT_EQ(Open(), 0);
    DeliverAndReceive(1);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    platform.DisposeOf("current media type");
    EXPECT_THAT(platform.Alive(), IsEmpty());
  }
};

// --- Ids ---

TEST_F(InvalidInputFromHost, IdIsNotReadBeyondItsFirstNonDigit) {
  QueryAndRelease();
  // A guard page follows each id.
  std::vector<std::string> texts = {std::string("0\0", 2),  "x", "12a", "-1", " 1", "\xB2",
                                    "00000000000000000000 "};
  texts.emplace_back(5000, '9').back() = '-';
  for (const std::string& text : texts) {
    const GuardPageBuffer id(text);
    for (const std::uint32_t length :
         {static_cast<std::uint32_t>(text.size()), 100'000U, 0x7FFFFFFFU, kMax}) {
      const NUVEQCameraParam param{id.Text(), length, 640, 480, 30};
      EXPECT_EQ(handler.OpenCameraDevice(&param), -2);
    }
  }
  EXPECT_THAT(platform.Calls(), IsEmpty());
  ExpectASoundSession();
}

TEST_F(InvalidInputFromHost, NullIdIsRefused) {
  for (const std::uint32_t length : {0U, 1U}) {
    const NUVEQCameraParam param{nullptr, length, 640, 480, 30};
    EXPECT_EQ(handler.OpenCameraDevice(&param), NUVEQ_CAMERA_INVALID_ARGUMENT);
  }
}

TEST_F(InvalidInputFromHost, IdIsReadUpToItsLengthAndPassedOn) {
  QueryAndRelease();
  for (const std::string accepted : {"", "0", "000"}) {
    const GuardPageBuffer exact(accepted);
    const std::string longer = accepted + "a";
    for (const char* const text : {exact.Text(), longer.data()}) {
      const NUVEQCameraParam param{text, static_cast<std::uint32_t>(accepted.size()), 640, 480, 30};
      ASSERT_EQ(handler.OpenCameraDevice(&param), NUVEQ_CAMERA_OK);
      DeliverAndReceive(1);
      EXPECT_EQ(host.Packets().back().id, accepted);
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
      platform.DisposeOf("current media type");
    }
  }
}

TEST_F(InvalidInputFromHost, UnknownOrOverflowingIdSelectsNoCamera) {
  QueryAndRelease();
  // Numbers that are 0 if truncated to 31, 32, 63 or 64 bits, maxima, and small numbers.
  for (const char* const id : {"1", "9", "2147483647", "2147483648", "4294967295", "4294967296",
                               "9223372036854775808", "18446744073709551615", "18446744073709551616",
                               "99999999999999999999", "340282366920938463463374607431768211456"}) {
    platform.ClearJournal();
    EXPECT_EQ(Open(id), NUVEQ_CAMERA_GRAPH_FAILED) << id;
    EXPECT_THAT(platform.Calls(), Not(Contains(HasSubstr("BindToObject"))));
    EXPECT_EQ(Close(id), NUVEQ_CAMERA_CLOSED);
  }
  // Many digits, but a small number.
  EXPECT_EQ(Open("00000000000000000000"), 0);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(Open(std::string(100'000, '0')), 0);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(Open(std::string(100'000, '0') + "1"), -1001);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  platform.DisposeOf("current media type");
}

TEST_F(InvalidInputFromHost, IdOfACloseIsPassedToTheReportUnread) {
  static std::atomic<const char*> idSeen = nullptr;
  static std::atomic<std::uint32_t> lengthSeen = 0;
  const NUVEQServiceListener listener{[](const char* id, std::uint32_t idLen, NUVEQServiceStatus) {
                                        idSeen = id;
                                        lengthSeen = idLen;
                                        return std::int32_t{0};
                                      },
                                      nullptr};
  ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
  QueryAndOpen();
  const GuardPageBuffer nothing(std::string{});
  EXPECT_EQ(handler.CloseCameraDevice(nothing.Text(), kMax), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(idSeen, nothing.Text());
  EXPECT_EQ(lengthSeen, kMax);
  ExpectFormatLeft();
  ASSERT_EQ(Open(), NUVEQ_CAMERA_OK);
  EXPECT_EQ(handler.CloseCameraDevice(nullptr, 3), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(idSeen, nullptr);
  EXPECT_EQ(lengthSeen, 3U);
}

// --- Sizes ---

struct Request {
  std::uint32_t width;
  std::uint32_t height;
  int result;
};

TEST_F(InvalidInputFromHost, ExtremeSizesAreOpenedOrRefusedWithoutLeaks) {
  QueryAndRelease();
  // The scripted encoder accepts any size; the pool refuses empty frames and frames of more than 2 GiB.
  const std::vector<Request> requests = {{0, 0, -1004},
                                         {0, 480, -1004},
                                         {640, 0, -1004},
                                         {0, kMax, -1004},
                                         {kMax, 0, -1004},
                                         {1, 1, 0},
                                         {1, 480, 0},
                                         {640, 1, 0},
                                         {641, 481, 0},
                                         {65535, 1, 0},
                                         {1, 65535, 0},
                                         {65535, 65535, -1004},
                                         {kMax, 1, -1004},
                                         {1, kMax, -1004},
                                         {640, kMax, -1004},
                                         {kMax, 480, -1004},
                                         {kMax, kMax, -1004},
                                         {0x80000000U, 2, -1004},
                                         {0x80000000U, 0x80000000U, -1004}};
  for (const Request& request : requests) {
    SCOPED_TRACE(std::to_string(request.width) + "x" + std::to_string(request.height));
    platform.ClearJournal();
    EXPECT_EQ(Open("0", request.width, request.height, 30), request.result);
    if (request.result == 0) {
      EXPECT_EQ(platform.LastEncodeParam().width, request.width);
      EXPECT_EQ(platform.LastEncodeParam().height, request.height);
      EXPECT_THAT(
          platform.Calls(),
          Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, " +
                   std::to_string(request.width) + "x" + std::to_string(request.height) + ", 333333)"));
      // The pool can be filled and encoded.
      const std::size_t bytes = std::size_t{request.width} * request.height * 2;
      EXPECT_TRUE(platform.DeliverFrame(Frame(bytes, 1)));
      EXPECT_TRUE(platform.DeliverFrame(Frame(bytes + 1, 1)));
      EXPECT_TRUE(WaitFor([&] { return platform.EncodedFrames().size() == 1; }));
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    } else {
      EXPECT_THAT(platform.Alive(), Not(Contains("frame")));
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE) << "there is no graph";
    }
    // The next open succeeds.
    ExpectASoundSession();
  }
}

// --- Callbacks ---

// The library may be unmapped once it is unpinned, so the outer call unpins it when it returns.
class InvalidInputNestedClose : public InvalidInputFromHost {
 protected:
  void CloseInsideTheReport() {
    EXPECT_EQ(Close("inner"), NUVEQ_CAMERA_CLOSED);
    EXPECT_EQ(platform.CallCount("UnpinModule"), 0U);
  }
  void ExpectClosedAndUnpinned(const std::string& timing) {
    EXPECT_EQ(platform.Calls().back(), "UnpinModule(" + timing + ")");
    EXPECT_THAT(platform.Journal(), Contains("status callback \"inner\" 5 3").Times(1));
    EXPECT_THAT(platform.Alive(), ElementsAre("current media type"));
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
    platform.DisposeOf("current media type");
    host.InStatus(nullptr);
    platform.SetPc(scripted::LaptopPc());
    QueryAndRelease();
    ExpectASoundSession();
  }
};

TEST_F(InvalidInputNestedClose, InTheReportOfAnOpenFailsTheOpen) {
  QueryAndRelease();
  host.InStatus([&](int status) {
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN) {
      CloseInsideTheReport();
    }
  });
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(platform.CallCount("IMediaControl::Run"), 0U);
  ExpectClosedAndUnpinned("soon");
}

TEST_F(InvalidInputNestedClose, InTheReportOfARefusedOpenClosesTheCamera) {
  OpenListed();
  host.InStatus([&](int status) {
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN) {
      CloseInsideTheReport();
    }
  });
  EXPECT_EQ(Open("7"), NUVEQ_CAMERA_ALREADY_OPEN);
  ExpectClosedAndUnpinned("before returning");
}

TEST_F(InvalidInputNestedClose, InTheReportOfAQueryClosesTheCamera) {
  OpenListed();
  platform.SetPc({{}, {scripted::PlugInCamera()}});
  host.InAction([&] { CloseInsideTheReport(); });
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  ExpectClosedAndUnpinned("before returning");
}

TEST_F(InvalidInputNestedClose, InTheReportOfACloseHasNoEffect) {
  QueryAndOpen();
  host.InStatus([&](int) { EXPECT_EQ(Close("inner"), NUVEQ_CAMERA_CLOSE_INCOMPLETE); });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3").Times(1));
  EXPECT_THAT(platform.Journal(), Not(Contains("status callback \"inner\" 5 3")));
}

TEST_F(InvalidInputFromHost, OpenInsideTheReportOfACloseIsRefused) {
  OpenListed();
  std::atomic<int> inside = 1;
  host.InStatus([&](int status) {
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_CLOSED) {
      inside = Open("7");
    }
  });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  host.InStatus(nullptr);
  EXPECT_EQ(inside, -4);
  EXPECT_THAT(platform.Alive(), ElementsAre("current media type"));
  platform.DisposeOf("current media type");
  ExpectASoundSession();
}

TEST_F(InvalidInputFromHost, DataCallbackMayCallEveryTableFunction) {
  QueryAndOpen();
  std::atomic<int> opened = 1;
  std::atomic<int> closed = 1;
  std::atomic<int> queried = 1;
  host.InData([&](const Packet&) {
    const NUVEQServiceListener listener{&HostCallbacks::OnStatus, nullptr};
    EXPECT_EQ(handler.RegisterServiceListener(&listener), 0);
    EXPECT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
    queried = Query();
    ReleaseCapabilities();
    opened = Open("7");
    closed = Close();
    EXPECT_EQ(handler.Reserved3(nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(handler.Reserved5(nullptr), 0);
    EXPECT_EQ(handler.Reserved8(0, nullptr, 0, nullptr), 0);
  });
  DeliverAndReceive(1);
  EXPECT_EQ(queried, 0) << "the camera is open and stays so";
  EXPECT_EQ(opened, -4);
  EXPECT_EQ(closed, 0);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"7\" 1 4"));
  EXPECT_THAT(platform.Journal(), Not(Contains("status callback \"0\" 1 3")));
  host.InData(nullptr);
  DeliverAndReceive(2);
  EXPECT_EQ(host.Packets().at(0).id, "0");
  EXPECT_EQ(host.Packets().at(1).id, "7") << "a refused open renames what follows";
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(InvalidInputFromHost, CloseReturnsWhileTheDataCallbackThrows) {
  OpenListed();
  Gate inside;
  Gate mayThrow;
  host.InData([&](const Packet&) {
    inside.Open();
    EXPECT_TRUE(mayThrow.Wait());
    throw std::runtime_error("host");
  });
  ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 1)));
  ASSERT_TRUE(inside.Wait());
  std::thread closer([&] { EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED); });
  EXPECT_TRUE(WaitFor([&] { return platform.CallCount("IMediaControl::Stop") == 1; }));
  mayThrow.Open();
  closer.join();
  host.InData(nullptr);
  platform.DisposeOf("current media type");
  ExpectASoundSession();
}

// Longer than any timeout that the library might have.
TEST_F(InvalidInputFromHost, DataCallbackThatBlocksForTenSecondsLosesNoFrame) {
  constexpr std::uint64_t kBlocking = 3;
  constexpr std::chrono::seconds kBlock{10};
  QuerySmallCamera();
  platform.SetStreaming({true, [](std::uint64_t number) {
                           std::vector<std::uint8_t> frame = Frame(kSmallFrameSize, 0);
                           std::memcpy(frame.data(), &number, sizeof(number));
                           return frame;
                         }});
  std::atomic<std::uint64_t> next = 0;
  std::atomic<std::uint64_t> outOfOrder = 0;
  std::atomic<std::uint64_t> heldBack = 0;
  Gate blocks;
  Gate mayEnd;
  std::atomic<bool> ended = false;
  host.InData([&](const Packet& packet) {
    std::uint64_t number = 0;
    std::memcpy(&number, packet.bytes.data(), sizeof(number));
    outOfOrder += number == next++ ? 0 : 1;
    if (number == kBlocking) {
      std::this_thread::sleep_for(kBlock);
      // The earlier frames, this frame, and a full pool.
      heldBack = platform.DeliveredFrames();
    } else if (number == 100 * kBlocking) {
      blocks.Open();
      EXPECT_TRUE(mayEnd.Wait());
      ended = true;
    }
  });
  ASSERT_EQ(OpenSmall(), 0);
  ASSERT_TRUE(blocks.Wait());
  EXPECT_EQ(heldBack, kBlocking + 1 + 5);
  std::thread closer([&] {
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    EXPECT_TRUE(ended) << "closing waits for the callback";
  });
  EXPECT_TRUE(WaitFor([&] { return platform.CallCount("IMediaControl::Stop") == 1; }));
  EXPECT_FALSE(ended);
  mayEnd.Open();
  closer.join();
  EXPECT_EQ(outOfOrder, 0U) << "nothing is lost, nothing comes twice";
}

}  // namespace

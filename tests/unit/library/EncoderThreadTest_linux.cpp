// What the product makes of its encoder thread: its name, and its place before threads that can wait. A
// thread starts out with the policy, the nice value and the rights of the one that opens the camera.
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <thread>

#include "DefaultsTest.h"
#include "support/HostCallbacks.h"

namespace {

constexpr int kSteps = 4;
// What every thread may take, whatever value the tests were started with.
constexpr int kWeakest = 19;

struct Standing {
  int policy = -1;
  int nice = 0;

  static Standing OfThisThread() {
    return {sched_getscheduler(0), getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()))};
  }
  friend bool operator==(const Standing&, const Standing&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Standing& standing) {
    return out << "policy " << standing.policy << ", nice value " << standing.nice;
  }
};

// False when the system refuses.
bool SetNice(int nice) { return setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice) == 0; }

bool SetPolicy(int policy, int priority) {
  sched_param param{};
  param.sched_priority = priority;
  return sched_setscheduler(0, policy, &param) == 0;
}

// Takes from the calling thread, and those that it starts, the right to raise a thread. Root has it mostly.
void GiveUpTheRight() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
  ASSERT_EQ(syscall(SYS_capget, &header, rights.data()), 0);
  for (std::uint32_t* set : {&rights[0].effective, &rights[0].permitted, &rights[0].inheritable}) {
    *set &= ~CAP_TO_MASK(CAP_SYS_NICE);
  }
  ASSERT_EQ(syscall(SYS_capset, &header, rights.data()), 0);
  // The process's limit is the other way to it.
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NICE, &limit), 0);
  limit.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NICE, &limit), 0);
}

class EncoderThread : public Defaults {
 protected:
  void SetUp() override {
    Defaults::SetUp();
    ASSERT_EQ(getrlimit(RLIMIT_NICE, &m_limit), 0);
    ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  }
  void TearDown() override {
    EXPECT_EQ(setrlimit(RLIMIT_NICE, &m_limit), 0);
    Defaults::TearDown();
    host.Reset();
  }

  // Opens on a thread of its own that prepares itself first, and looks at the encoder thread.
  void OpenOnThreadThat(const std::function<void()>& preparesItself) {
    host.Reset();
    host.InData([this](const Packet&) {
      standing = Standing::OfThisThread();
      std::array<char, 16> text{};
      pthread_getname_np(pthread_self(), text.data(), text.size());
      name = text.data();
    });
    std::thread([&] {
      // Whatever the tests were started with.
      EXPECT_TRUE(SetPolicy(SCHED_OTHER, 0));
      preparesItself();
      opener = Standing::OfThisThread();
      QueryAndOpen();
      EXPECT_EQ(Standing::OfThisThread(), opener) << "the host's thread stays as it is";
      EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 1)));
      EXPECT_TRUE(host.WaitForPackets(1));
      EXPECT_EQ(handler.CloseCameraDevice("0", 1), 1);
    }).join();
  }

  // What a thread that starts out as the opener's did gets when it asks, with this process's rights. One that
  // is strong already does not ask.
  Standing WithinReach() const {
    Standing reached = opener;
    std::thread([&] {
      EXPECT_TRUE(SetPolicy(opener.policy, 0) && SetNice(opener.nice));
      reached.nice -= opener.nice >= 0 && SetNice(opener.nice - kSteps) ? kSteps : 0;
    }).join();
    return reached;
  }

  HostCallbacks& host = HostCallbacks::Get();
  // Of the thread that brought the packet, and of the one that opened the camera.
  Standing standing;
  std::string name;
  Standing opener;

 private:
  rlimit m_limit{};
};

TEST_F(EncoderThread, IsKnownByItsName) {
  OpenOnThreadThat([] {});
  EXPECT_EQ(name, "nuveq-encoder");
}

TEST_F(EncoderThread, GoesBeforeOthersWhereTheSystemLetsIt) {
  OpenOnThreadThat([] {});
  EXPECT_EQ(standing, WithinReach());
}

TEST_F(EncoderThread, StepsBackWithItsHost) {
  OpenOnThreadThat([] { EXPECT_TRUE(SetNice(kWeakest)); });
  EXPECT_EQ(opener.nice, kWeakest);
  EXPECT_EQ(standing, WithinReach());
}

TEST_F(EncoderThread, StaysAsItIsWithoutTheRightToMore) {
  OpenOnThreadThat([] {
    EXPECT_TRUE(SetNice(kWeakest));
    ASSERT_NO_FATAL_FAILURE(GiveUpTheRight());
    ASSERT_FALSE(SetNice(kWeakest - 1));
  });
  EXPECT_EQ(standing, (Standing{SCHED_OTHER, kWeakest}));
  EXPECT_EQ(name, "nuveq-encoder");
}

// A host that may not choose these gets the usual.
TEST_F(EncoderThread, KeepsAStrongerValueOfItsHosts) {
  for (const int nice : {-1, -10}) {
    bool isChosen = false;
    OpenOnThreadThat([&] { isChosen = SetNice(nice); });
    EXPECT_EQ(standing, isChosen ? (Standing{SCHED_OTHER, nice}) : WithinReach());
  }
}

TEST_F(EncoderThread, KeepsARealTimePolicyOfItsHosts) {
  bool isChosen = false;
  OpenOnThreadThat([&] { isChosen = SetPolicy(SCHED_RR, 1); });
  EXPECT_EQ(standing, isChosen ? opener : WithinReach());
  EXPECT_EQ(standing.policy, isChosen ? SCHED_RR : SCHED_OTHER);
}

TEST_F(EncoderThread, KeepsABackgroundPolicyOfItsHosts) {
  OpenOnThreadThat([] { EXPECT_TRUE(SetPolicy(SCHED_BATCH, 0)); });
  EXPECT_EQ(opener.policy, SCHED_BATCH);
  EXPECT_EQ(standing, opener);
}

}  // namespace

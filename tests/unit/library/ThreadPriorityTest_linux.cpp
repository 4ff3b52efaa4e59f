// Name and priority of the encoder thread. A thread inherits the scheduling policy, nice value and privileges
// of the thread that opens the camera.
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

using support::Frame;
using support::HostCallbacks;
using support::kFrameSize;
using support::Packet;

constexpr int kSteps = 4;
// A nice value that every thread may set, whatever value the tests were started with.
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

// False if the system refuses.
bool SetNice(int nice) { return setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice) == 0; }

bool SetPolicy(int policy, int priority) {
  sched_param param{};
  param.sched_priority = priority;
  return sched_setscheduler(0, policy, &param) == 0;
}

// Removes the privilege to raise priorities from the calling thread and the threads that it starts.
void GiveUpTheRight() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
  ASSERT_EQ(syscall(SYS_capget, &header, rights.data()), 0);
  for (std::uint32_t* set : {&rights[0].effective, &rights[0].permitted, &rights[0].inheritable}) {
    *set &= ~CAP_TO_MASK(CAP_SYS_NICE);
  }
  ASSERT_EQ(syscall(SYS_capset, &header, rights.data()), 0);
  // RLIMIT_NICE grants it, too.
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NICE, &limit), 0);
  limit.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NICE, &limit), 0);
}

class ThreadPriority : public Defaults {
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

  // Opens on a new thread after running prepare on it, and inspects the encoder thread.
  void OpenOnThreadThat(const std::function<void()>& preparesItself) {
    host.Reset();
    host.InData([this](const Packet&) {
      standing = Standing::OfThisThread();
      std::array<char, 16> text{};
      pthread_getname_np(pthread_self(), text.data(), text.size());
      name = text.data();
    });
    std::thread([&] {
      // Independent of the nice value that the tests were started with.
      EXPECT_TRUE(SetPolicy(SCHED_OTHER, 0));
      preparesItself();
      opener = Standing::OfThisThread();
      QueryAndOpen();
      EXPECT_EQ(Standing::OfThisThread(), opener) << "the host's thread stays as it is";
      EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 1)));
      EXPECT_TRUE(host.WaitForPackets(1));
      EXPECT_EQ(Close(), 1);
    }).join();
  }

  // The nice value expected for the opener's value and the privileges of this process. A negative value is
  // not changed.
  Standing WithinReach() const {
    Standing reached = opener;
    std::thread([&] {
      EXPECT_TRUE(SetPolicy(opener.policy, 0) && SetNice(opener.nice));
      reached.nice -= opener.nice >= 0 && SetNice(opener.nice - kSteps) ? kSteps : 0;
    }).join();
    return reached;
  }

  HostCallbacks& host = HostCallbacks::Get();
  // Scheduling of the thread of the data callback and of the thread that opened the camera.
  Standing standing;
  std::string name;
  Standing opener;

 private:
  rlimit m_limit{};
};

TEST_F(ThreadPriority, HasTheDocumentedName) {
  OpenOnThreadThat([] {});
  EXPECT_EQ(name, "nuveq-encoder");
}

TEST_F(ThreadPriority, IsRaisedIfTheSystemPermits) {
  OpenOnThreadThat([] {});
  EXPECT_EQ(standing, WithinReach());
}

TEST_F(ThreadPriority, IsRelativeToTheHostsNiceValue) {
  OpenOnThreadThat([] { EXPECT_TRUE(SetNice(kWeakest)); });
  EXPECT_EQ(opener.nice, kWeakest);
  EXPECT_EQ(standing, WithinReach());
}

TEST_F(ThreadPriority, IsUnchangedWithoutPermission) {
  OpenOnThreadThat([] {
    EXPECT_TRUE(SetNice(kWeakest));
    ASSERT_NO_FATAL_FAILURE(GiveUpTheRight());
    ASSERT_FALSE(SetNice(kWeakest - 1));
  });
  EXPECT_EQ(standing, (Standing{SCHED_OTHER, kWeakest}));
  EXPECT_EQ(name, "nuveq-encoder");
}

// Without the privilege to set these, the default applies.
TEST_F(ThreadPriority, KeepsNegativeNiceValueOfTheHost) {
  for (const int nice : {-1, -10}) {
    bool isChosen = false;
    OpenOnThreadThat([&] { isChosen = SetNice(nice); });
    EXPECT_EQ(standing, isChosen ? (Standing{SCHED_OTHER, nice}) : WithinReach());
  }
}

TEST_F(ThreadPriority, KeepsRealTimePolicyOfTheHost) {
  bool isChosen = false;
  OpenOnThreadThat([&] { isChosen = SetPolicy(SCHED_RR, 1); });
  EXPECT_EQ(standing, isChosen ? opener : WithinReach());
  EXPECT_EQ(standing.policy, isChosen ? SCHED_RR : SCHED_OTHER);
}

TEST_F(ThreadPriority, KeepsBackgroundPolicyOfTheHost) {
  OpenOnThreadThat([] { EXPECT_TRUE(SetPolicy(SCHED_BATCH, 0)); });
  EXPECT_EQ(opener.policy, SCHED_BATCH);
  EXPECT_EQ(standing, opener);
}

}  // namespace

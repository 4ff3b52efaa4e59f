// The scripted objects implement all methods of the Windows interfaces and report calls of those that the
// library does not need.
#include "DirectShow.h"
#include "com/ComPtr.h"
#include "support/PlatformTest.h"

namespace {

using support::PlatformTest;

using UncalledMethods = PlatformTest;
using ::testing::ElementsAre;

TEST_F(UncalledMethods, FailAndAreReportedAsMisuse) {
  ComPtr<IGraphBuilder> graph;
  ComPtr<IMalloc> allocator;
  ASSERT_EQ(
      CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, graph.PutVoid()),
      S_OK);
  ASSERT_EQ(CoGetMalloc(1, allocator.Put()), S_OK);
  EXPECT_EQ(graph->Abort(), E_NOTIMPL);
  EXPECT_EQ(allocator->Alloc(1), nullptr);
  EXPECT_THAT(platform.Misuse(), ElementsAre("IGraphBuilder::Abort is called", "IMalloc::Alloc is called"));
  graph.Reset();
  allocator.Reset();
  EXPECT_THAT(platform.Alive(), ::testing::IsEmpty());
  platform.Reset({});
}

}  // namespace

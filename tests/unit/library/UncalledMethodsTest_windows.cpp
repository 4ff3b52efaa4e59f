// The scripted objects have all methods of the system's interfaces; those that the library has no business
// with say so.
#include "DirectShow.h"
#include "com/ComPtr.h"
#include "support/PlatformTest.h"

namespace {

using UncalledMethods = PlatformTest;
using ::testing::ElementsAre;

TEST_F(UncalledMethods, FailAndAreMisuseOfThePlatform) {
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

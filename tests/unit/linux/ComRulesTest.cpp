// The COM rules that every object of the platform follows.
#include <array>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>

#include "com/Enumerator.h"
#include "support/linux/LinuxTest.h"

// Of the objects of this program; the platform library has its own.
std::atomic<std::uint64_t>& com::LiveObjectCount() {
  static std::atomic<std::uint64_t> count{0};
  return count;
}

namespace linux_support {
namespace {

constexpr GUID kUnknownId = FourCcSubtype(0x12345678);

// The COM identity of an object.
void* Identity(IUnknown& object) {
  ComPtr<IUnknown> unknown;
  EXPECT_EQ(object.QueryInterface(IID_IUnknown, unknown.PutVoid()), S_OK);
  return unknown.Get();
}

// An object and the interfaces that it must expose besides IUnknown.
struct TestedObject {
  const char* name;
  IUnknown* object;
  std::vector<IID> interfaces;
};

class ComRulesTest : public LinuxTest {
 protected:
  void SetUp() override {
    LinuxTest::SetUp();
    AddLaptopCamera();
    ASSERT_EQ(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                               devices.PutVoid()),
              S_OK);
    ASSERT_EQ(graph.Build(&callback), S_OK);
    moniker = ListCaptureDevices().front().moniker;
    monikers = EnumerateMonikers();
    ASSERT_EQ(graph.camera->EnumPins(pins.Put()), S_OK);
    ASSERT_EQ(graph.cameraPin->EnumMediaTypes(types.Put()), S_OK);
    ASSERT_EQ(CoGetMalloc(1, allocator.Put()), S_OK);
    ASSERT_EQ(CreateBindCtx(0, context.Put()), S_OK);
    config = StreamConfig(*graph.cameraPin.Get());
  }
  void TearDown() override {
    devices.Reset();
    moniker.Reset();
    monikers.Reset();
    pins.Reset();
    types.Reset();
    allocator.Reset();
    context.Reset();
    config.Reset();
    graph.Release();
    LinuxTest::TearDown();
  }

  std::vector<TestedObject> Objects() {
    return {{"device enumerator", devices.Get(), {IID_ICreateDevEnum}},
            {"monikers", monikers.Get(), {}},
            {"moniker", moniker.Get(), {}},
            {"graph", graph.builder.Get(), {IID_IGraphBuilder, IID_IMediaControl, IID_IMediaEvent}},
            {"camera", graph.camera.Get(), {IID_IBaseFilter}},
            {"grabber", graph.grabberFilter.Get(), {IID_IBaseFilter, IID_ISampleGrabber}},
            {"pins", pins.Get(), {}},
            {"camera's pin", graph.cameraPin.Get(), {IID_IAMStreamConfig}},
            {"grabber's pin", graph.grabberPin.Get(), {}},
            {"media types", types.Get(), {}},
            {"allocator", allocator.Get(), {}},
            {"context", context.Get(), {}}};
  }

  FrameCollector callback;
  CaptureGraph graph;
  ComPtr<ICreateDevEnum> devices;
  ComPtr<IEnumMoniker> monikers;
  ComPtr<IMoniker> moniker;
  ComPtr<IEnumPins> pins;
  ComPtr<IEnumMediaTypes> types;
  ComPtr<IMalloc> allocator;
  ComPtr<IBindCtx> context;
  ComPtr<IAMStreamConfig> config;
};

using EnumeratorTest = ComRulesTest;

TEST_F(ComRulesTest, QueryInterfaceIsReflexiveSymmetricAndTransitive) {
  for (const TestedObject& tested : Objects()) {
    std::vector<IID> all = tested.interfaces;
    all.push_back(IID_IUnknown);
    void* const identity = Identity(*tested.object);
    for (const IID& from : all) {
      ComPtr<IUnknown> first;
      ASSERT_EQ(tested.object->QueryInterface(from, first.PutVoid()), S_OK) << tested.name;
      EXPECT_EQ(Identity(*first.Get()), identity) << tested.name;
      for (const IID& to : all) {
        ComPtr<IUnknown> second;
        ASSERT_EQ(first->QueryInterface(to, second.PutVoid()), S_OK) << tested.name;
        EXPECT_EQ(Identity(*second.Get()), identity) << tested.name;
        ComPtr<IUnknown> again;
        ASSERT_EQ(tested.object->QueryInterface(to, again.PutVoid()), S_OK) << tested.name;
        EXPECT_EQ(again.Get(), second.Get()) << tested.name << ": the same pointer every time";
      }
    }
  }
}

TEST_F(ComRulesTest, ObjectsHaveDistinctIdentities) {
  std::vector<void*> identities;
  for (const TestedObject& tested : Objects()) {
    EXPECT_THAT(identities, ::testing::Not(::testing::Contains(Identity(*tested.object)))) << tested.name;
    identities.push_back(Identity(*tested.object));
  }
}

TEST_F(ComRulesTest, QueryInterfaceForAnUnknownInterfaceReturnsNull) {
  for (const TestedObject& tested : Objects()) {
    void* notNull = this;
    EXPECT_EQ(tested.object->QueryInterface(kUnknownId, &notNull), E_NOINTERFACE) << tested.name;
    EXPECT_EQ(notNull, nullptr) << tested.name;
    EXPECT_EQ(tested.object->QueryInterface(IID_IUnknown, nullptr), E_POINTER) << tested.name;
  }
}

TEST_F(ComRulesTest, ObjectsExposeOnlyTheirOwnInterfaces) {
  for (const TestedObject& tested : Objects()) {
    for (const IID& other : {IID_ICreateDevEnum, IID_IGraphBuilder, IID_IMediaControl, IID_IMediaEvent,
                             IID_IBaseFilter, IID_ISampleGrabber, IID_IAMStreamConfig}) {
      ComPtr<IUnknown> found;
      const bool isExposed = std::any_of(tested.interfaces.begin(), tested.interfaces.end(),
                                         [&other](const IID& known) { return known == other; });
      EXPECT_EQ(tested.object->QueryInterface(other, found.PutVoid()), isExposed ? S_OK : E_NOINTERFACE)
          << tested.name;
    }
  }
}

TEST_F(ComRulesTest, ReferencesAreCounted) {
  for (const TestedObject& tested : Objects()) {
    const ULONG count = tested.object->AddRef();
    EXPECT_EQ(tested.object->AddRef(), count + 1) << tested.name;
    EXPECT_EQ(tested.object->Release(), count) << tested.name;
    EXPECT_EQ(tested.object->Release(), count - 1) << tested.name;
  }
}

TEST_F(ComRulesTest, ReferenceCountingIsThreadSafe) {
  const auto work = [this] {
    for (int i = 0; i < 1000; ++i) {
      for (const TestedObject& tested : Objects()) {
        ComPtr<IUnknown> unknown;
        EXPECT_EQ(tested.object->QueryInterface(IID_IUnknown, unknown.PutVoid()), S_OK);
      }
    }
  };
  std::thread other(work);
  work();
  other.join();
}

TEST_F(ComRulesTest, PinKeepsItsFilterAlive) {
  ComPtr<IBaseFilter> camera = FirstCamera();
  const ComPtr<IPin> pin = FindPin(*camera.Get(), PINDIR_OUTPUT);
  void* const identity = Identity(*camera.Get());
  camera.Reset();
  PIN_INFO info{};
  ASSERT_EQ(pin->QueryPinInfo(&info), S_OK);
  EXPECT_EQ(Identity(*info.pFilter), identity);
  EXPECT_EQ(info.dir, PINDIR_OUTPUT);
  info.pFilter->Release();
}

TEST_F(ComRulesTest, PinInfoIsOverwrittenCompletely) {
  for (const auto& [pin, filter, direction, name] :
       {std::tuple{graph.cameraPin.Get(), graph.camera.Get(), PINDIR_OUTPUT, L"Capture"},
        std::tuple{graph.grabberPin.Get(), graph.grabberFilter.Get(), PINDIR_INPUT, L"Input"}}) {
    PIN_INFO info{};
    std::fill(std::begin(info.achName), std::end(info.achName), L'x');
    ASSERT_EQ(pin->QueryPinInfo(&info), S_OK);
    EXPECT_EQ(info.pFilter, filter);
    EXPECT_EQ(info.dir, direction);
    EXPECT_EQ(std::wstring(info.achName, wcsnlen(info.achName, std::size(info.achName))), name);
    info.pFilter->Release();
  }
}

TEST_F(ComRulesTest, PinsHaveOneDirection) {
  EXPECT_FALSE(FindPin(*graph.camera.Get(), PINDIR_INPUT));
  PIN_DIRECTION direction = PINDIR_OUTPUT;
  EXPECT_EQ(graph.grabberPin->QueryDirection(&direction), S_OK);
  EXPECT_EQ(direction, PINDIR_INPUT);
}

TEST_F(ComRulesTest, NullOutPointersAreRejected) {
  EXPECT_EQ(devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, nullptr, 0), E_POINTER);
  EXPECT_EQ(monikers->Next(1, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, nullptr), E_POINTER);
  EXPECT_EQ(moniker->GetDisplayName(nullptr, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(graph.camera->EnumPins(nullptr), E_POINTER);
  EXPECT_EQ(pins->Next(1, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(graph.cameraPin->QueryPinInfo(nullptr), E_POINTER);
  EXPECT_EQ(graph.cameraPin->QueryDirection(nullptr), E_POINTER);
  EXPECT_EQ(graph.cameraPin->EnumMediaTypes(nullptr), E_POINTER);
  EXPECT_EQ(graph.grabberFilter->EnumPins(nullptr), E_POINTER);
  EXPECT_EQ(graph.grabberPin->QueryPinInfo(nullptr), E_POINTER);
  EXPECT_EQ(graph.grabberPin->QueryDirection(nullptr), E_POINTER);
  EXPECT_EQ(graph.grabberPin->EnumMediaTypes(nullptr), E_POINTER);
  EXPECT_EQ(types->Next(1, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(config->GetFormat(nullptr), E_POINTER);
  EXPECT_EQ(config->SetFormat(nullptr), E_POINTER);
  EXPECT_EQ(graph.builder->AddFilter(nullptr, L"none"), E_POINTER);
  EXPECT_EQ(graph.builder->Connect(nullptr, graph.grabberPin.Get()), E_POINTER);
  EXPECT_EQ(graph.builder->Connect(graph.cameraPin.Get(), nullptr), E_POINTER);
  EXPECT_EQ(graph.grabber->SetMediaType(nullptr), E_POINTER);
  EXPECT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, nullptr),
            E_POINTER);
}

TEST_F(ComRulesTest, OutPointersAreNullAfterAFailure) {
  void* notNull = this;
  EXPECT_EQ(CoCreateInstance(kUnknownId, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &notNull),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(notNull, nullptr);
  notNull = this;
  EXPECT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, &notNull),
            E_NOINTERFACE);
  EXPECT_EQ(notNull, nullptr);
  notNull = this;
  EXPECT_EQ(moniker->BindToObject(nullptr, nullptr, kUnknownId, &notNull), E_NOINTERFACE);
  EXPECT_EQ(notNull, nullptr);
  auto* notNullAllocator = reinterpret_cast<IMalloc*>(this);
  EXPECT_EQ(CoGetMalloc(2, &notNullAllocator), E_INVALIDARG);
  EXPECT_EQ(notNullAllocator, nullptr);
  auto* notNullTypes = reinterpret_cast<IEnumMediaTypes*>(this);
  EXPECT_EQ(graph.grabberPin->EnumMediaTypes(&notNullTypes), E_NOTIMPL);
  EXPECT_EQ(notNullTypes, nullptr);
  kernel.Fail(kOpenCall, EACCES);
  const ComPtr<IBaseFilter> closed = FirstCamera();
  const ComPtr<IPin> pin = FindPin(*closed.Get(), PINDIR_OUTPUT);
  notNullTypes = reinterpret_cast<IEnumMediaTypes*>(this);
  EXPECT_EQ(pin->EnumMediaTypes(&notNullTypes), E_ACCESSDENIED);
  EXPECT_EQ(notNullTypes, nullptr);
  auto* notNullType = reinterpret_cast<AM_MEDIA_TYPE*>(this);
  EXPECT_EQ(StreamConfig(*pin.Get())->GetFormat(&notNullType), E_ACCESSDENIED);
  EXPECT_EQ(notNullType, nullptr);
}

TEST_F(ComRulesTest, ClassesCanBeCreatedByEveryInterface) {
  for (const auto& [classId, interface] :
       {std::pair{CLSID_SystemDeviceEnum, IID_IUnknown}, std::pair{CLSID_FilterGraph, IID_IMediaControl},
        std::pair{CLSID_FilterGraph, IID_IMediaEvent}, std::pair{CLSID_SampleGrabber, IID_ISampleGrabber},
        std::pair{CLSID_SampleGrabber, IID_IUnknown}}) {
    ComPtr<IUnknown> object;
    EXPECT_EQ(CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, interface, object.PutVoid()), S_OK);
    EXPECT_TRUE(object);
  }
}

TEST_F(ComRulesTest, ClassesAreNeitherAggregatedNorCreatedInAnotherProcess) {
  constexpr HRESULT kNoAggregation = static_cast<HRESULT>(0x80040110);
  void* notNull = this;
  EXPECT_EQ(
      CoCreateInstance(CLSID_FilterGraph, graph.camera.Get(), CLSCTX_INPROC_SERVER, IID_IUnknown, &notNull),
      kNoAggregation);
  EXPECT_EQ(notNull, nullptr);
  constexpr DWORD kLocalServer = 4;
  EXPECT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, kLocalServer, IID_IUnknown, &notNull),
            REGDB_E_CLASSNOTREG);
}

TEST_F(ComRulesTest, AnotherCategoryIsEmpty) {
  ComPtr<IEnumMoniker> none;
  EXPECT_EQ(devices->CreateClassEnumerator(kUnknownId, none.Put(), 0), S_FALSE);
  EXPECT_FALSE(none);
}

TEST_F(ComRulesTest, TaskMemoryIsSharedByAllocatorAndFunctions) {
  const std::uint64_t before = com::LiveTaskBlocks();
  void* const block = CoTaskMemAlloc(100);
  ASSERT_NE(block, nullptr);
  std::fill_n(static_cast<char*>(block), 100, 'x');
  EXPECT_EQ(com::LiveTaskBlocks(), before + 1);
  allocator->Free(block);
  EXPECT_EQ(com::LiveTaskBlocks(), before);
  CoTaskMemFree(CoTaskMemAlloc(0));
  CoTaskMemFree(nullptr);
  allocator->Free(nullptr);
  EXPECT_EQ(com::LiveTaskBlocks(), before);
}

TEST_F(ComRulesTest, NonzeroReservedArgumentsAreRejected) {
  auto* notNull = reinterpret_cast<IBindCtx*>(this);
  EXPECT_EQ(CreateBindCtx(1, &notNull), E_INVALIDARG);
  EXPECT_EQ(notNull, nullptr);
  EXPECT_EQ(CreateBindCtx(0, nullptr), E_POINTER);
  EXPECT_EQ(CoGetMalloc(1, nullptr), E_POINTER);
}

TEST(ComInitializationTest, CountsInitializationsPerThread) {
  std::thread other([] {
    EXPECT_EQ(CoInitialize(nullptr), S_OK);
    EXPECT_EQ(CoInitialize(nullptr), S_FALSE);
    std::thread third([] {
      EXPECT_EQ(CoInitialize(nullptr), S_OK);
      CoUninitialize();
    });
    third.join();
    CoUninitialize();
    EXPECT_EQ(CoInitialize(nullptr), S_FALSE) << "still initialized";
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoInitialize(nullptr), S_OK) << "initialized again";
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoInitialize(nullptr), S_OK) << "a surplus CoUninitialize has no effect";
    CoUninitialize();
  });
  other.join();
}

// --- Enumerators ---

TEST_F(EnumeratorTest, MonikersEndAndCanBeReset) {
  AddPluggedInCamera("1-2", 2);
  AddPluggedInCamera("1-3", 3);
  const ComPtr<IEnumMoniker> three = EnumerateMonikers();
  std::array<IMoniker*, 4> elements{};
  ULONG fetched = 99;
  EXPECT_EQ(three->Next(2, elements.data(), &fetched), S_OK);
  EXPECT_EQ(fetched, 2U);
  EXPECT_EQ(three->Next(2, elements.data() + 2, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 1U);
  ComPtr<IMoniker> none;
  EXPECT_EQ(three->Next(1, none.Put(), &fetched), S_FALSE);
  EXPECT_EQ(fetched, 0U);
  EXPECT_FALSE(none);
  EXPECT_EQ(three->Reset(), S_OK);
  EXPECT_EQ(three->Next(1, none.Put(), nullptr), S_OK);
  EXPECT_TRUE(none);
  for (IMoniker* const given : elements) {
    if (given != nullptr) {
      given->Release();
    }
  }
}

TEST_F(EnumeratorTest, FetchingSeveralRequiresACount) {
  std::array<IMoniker*, 2> elements{};
  EXPECT_EQ(monikers->Next(2, elements.data(), nullptr), E_POINTER);
  EXPECT_EQ(elements[0], nullptr);
}

TEST_F(EnumeratorTest, PinsEnd) {
  ComPtr<IPin> pin;
  ULONG fetched = 99;
  EXPECT_EQ(pins->Next(1, pin.Put(), &fetched), S_OK);
  EXPECT_EQ(fetched, 1U);
  EXPECT_EQ(pins->Next(1, pin.Put(), &fetched), S_FALSE);
  EXPECT_EQ(fetched, 0U);
  EXPECT_FALSE(pin);
}

TEST_F(EnumeratorTest, MediaTypesEnd) {
  std::array<AM_MEDIA_TYPE*, 8> elements{};
  ULONG fetched = 99;
  EXPECT_EQ(types->Next(8, elements.data(), &fetched), S_FALSE);
  EXPECT_EQ(fetched, 6U);
  std::vector<MediaType> owned;
  for (ULONG i = 0; i < fetched; ++i) {
    owned.emplace_back(elements.at(i));
  }
  AM_MEDIA_TYPE* none = elements[0];
  EXPECT_EQ(types->Next(1, &none, nullptr), S_FALSE);
}

TEST_F(EnumeratorTest, MediaTypesAreCopies) {
  AM_MEDIA_TYPE* type = nullptr;
  ASSERT_EQ(types->Next(1, &type, nullptr), S_OK);
  const MediaType first(type);
  Video(first).bmiHeader.biWidth = 1;
  std::vector<MediaType> again;
  ASSERT_EQ(ListMediaTypes(*graph.cameraPin.Get(), again), S_OK);
  EXPECT_EQ(Video(again.front()).bmiHeader.biWidth, 64);
}

TEST_F(EnumeratorTest, OutlivesTheEnumeratedObject) {
  ComPtr<IEnumMediaTypes> ofAnother;
  {
    const ComPtr<IBaseFilter> camera = FirstCamera();
    ASSERT_EQ(FindPin(*camera.Get(), PINDIR_OUTPUT)->EnumMediaTypes(ofAnother.Put()), S_OK);
  }
  AM_MEDIA_TYPE* type = nullptr;
  ASSERT_EQ(ofAnother->Next(1, &type, nullptr), S_OK);
  EXPECT_EQ(Describe(MediaType(type)), "YUY2 64x48 333333");
}

// Enumerates pins of which some cannot be copied.
class FailingPins : public com::Enumerator<IEnumPins, IPin, HRESULT> {
 public:
  using Enumerator::Enumerator;

 protected:
  HRESULT CopyItem(const HRESULT& result, IPin** out) override {
    if (result == E_FAIL) {
      throw std::runtime_error("failed");
    }
    *out = nullptr;
    return result;
  }
};

TEST_F(EnumeratorTest, ReturnsTheItemsBeforeAFailureFirst) {
  const auto failing =
      com::MakeComObject<FailingPins>(std::vector<HRESULT>{S_OK, E_OUTOFMEMORY, S_OK, E_FAIL});
  IPin* const notNull = graph.cameraPin.Get();
  std::array<IPin*, 3> elements{notNull, notNull, notNull};
  ULONG fetched = 99;
  EXPECT_EQ(failing->Next(3, elements.data(), &fetched), S_FALSE);
  EXPECT_EQ(fetched, 1U);
  EXPECT_EQ(elements[1], nullptr);
  EXPECT_EQ(elements[2], notNull) << "beyond the end";
  elements[0] = notNull;
  EXPECT_EQ(failing->Next(3, elements.data(), &fetched), E_OUTOFMEMORY);
  EXPECT_EQ(fetched, 0U);
  EXPECT_EQ(elements[0], nullptr);
}

TEST_F(EnumeratorTest, ReportsAnExceptionAsAFailure) {
  const auto failing = com::MakeComObject<FailingPins>(std::vector<HRESULT>{E_FAIL});
  IPin* notNull = graph.cameraPin.Get();
  EXPECT_EQ(failing->Next(1, &notNull, nullptr), E_FAIL);
  EXPECT_EQ(notNull, nullptr);
}

TEST_F(EnumeratorTest, ReturnsNothingIfNothingIsRequested) {
  IPin* notNull = graph.cameraPin.Get();
  ULONG fetched = 99;
  EXPECT_EQ(pins->Next(0, &notNull, &fetched), S_OK);
  EXPECT_EQ(fetched, 0U);
  EXPECT_EQ(notNull, graph.cameraPin.Get());
}

}  // namespace
}  // namespace linux_support

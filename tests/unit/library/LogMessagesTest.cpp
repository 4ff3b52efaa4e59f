// Every log message of the library: the situation that causes it, its level, location, function and text.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "Logger.h"
#include "support/CameraHandlerTest.h"
#include "support/CameraOperatorTest.h"

namespace {

using scripted::Answer;
using scripted::Fails;
using scripted::LaptopPc;
using scripted::MediaType;
using scripted::Mjpg;
using scripted::Pc;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using scripted::Yuy2;
using support::CameraHandlerTest;
using support::Frame;
using support::kFrameSize;
using support::LoadedLibrary;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

// Line number of a message that logs the number of its statement.
const std::string kOwnLine = "__LINE__";

// "LEVEL file:line text(function)"
using Messages = std::vector<std::string>;

std::string OfOperator(const std::string& levelAndLine, const std::string& function,
                       const std::string& text) {
  return levelAndLine + " [CameraOperator]" + text + "(CameraOperator::" + function + ")";
}

std::string Error(int line, const std::string& function, const std::string& text) {
  return OfOperator("ERROR CameraOperator:" + std::to_string(line), function, text);
}

std::string Error(const std::string& function, const std::string& text) {
  return OfOperator("ERROR CameraOperator:" + kOwnLine, function, text);
}

std::string Warning(int line, const std::string& function, const std::string& text) {
  return OfOperator("WARN CameraOperator:" + std::to_string(line), function, text);
}

// --- Messages of the callers of the function that fails ---

const std::string kOpenStarts = Warning(708, "OpenCameraInner", "Start open camera");
const std::string kOpenSucceeds = Warning(775, "OpenCameraInner", "open camera success");
const std::string kGraphSucceeds = Error("OpenCamera", "OpenCamera success.");
const std::string kCloseStarts = Error(950, "CloseCameraInner", "CloseCameraInner.");
const std::string kActionIsReported = Error(792, "UpdateServiceActionToNuveq", "report camera driver error");
const std::string kNoCamera = Error(981, "GetCameraCapabilityInner", "Can not find PC Camera");

std::string GraphStarts(const std::string& fps = "30") {
  return Error("OpenCamera", "start OpenCamera, width:640, height:480, fps:" + fps);
}

std::string FormatIsSet(const std::string& fps = "30") {
  return Error("SetCameraFormat", "Set camera parameter, (640,480," + fps + ",844715353)");
}

std::string StatusIsRefused(const std::string& result) {
  return Error(784, "UpdateServiceStatusToNuveq", "fail to update service status, error: " + result);
}

std::string ActionIsRefused(const std::string& result) {
  return Error(795, "UpdateServiceActionToNuveq", "fail to update service action, error: " + result);
}

std::string EncodingFails(const std::string& result) {
  return Error(1148, "EncodeH264", "fail to encode frame, error: " + result);
}

std::string PacketIsRefused(const std::string& result) {
  return Error(1156, "EncodeH264", "fail to send encode data, error: " + result);
}

Messages QueryFindsNoCamera(const std::string& cause) { return {cause, kActionIsReported, kNoCamera}; }

Messages QueryFails(const std::string& cause, const std::string& consequence) {
  return {cause, consequence, Error(1036, "GetCameraCapabilityInner", "fail to get allAbilities -1000")};
}

Messages QueryCannotBind(const std::string& cause) {
  return QueryFails(cause, Error(337, "GetCameraCapabilities", "BindFilter fail, cameraIndex: 0"));
}

Messages QueryFindsNoPins(const std::string& cause) {
  return QueryFails(cause, Error(343, "GetCameraCapabilities", "EnumPins fail, cameraIndex: 0"));
}

Messages QueryCannotReadPins(const std::string& cause) {
  return QueryFails(cause, Error(349, "GetCameraCapabilities", "fail to query camera pin info."));
}

Messages EncoderSetupFails(const std::string& cause) {
  return {kOpenStarts, cause, Error(743, "OpenCameraInner", "fail to init video encoder")};
}

Messages OpenFails(Messages causes) {
  causes.insert(causes.begin(), {kOpenStarts, GraphStarts()});
  causes.push_back(Error(754, "OpenCameraInner", "fail to open camera"));
  return causes;
}

Messages GraphSetupFails(const std::string& cause, const std::string& cameraIndex = "0") {
  return OpenFails({cause, Error("OpenCamera", "InitCameraBasicInfo fail. cameraId:" + cameraIndex)});
}

Messages AddingTheCameraFails(const std::string& cause) {
  return OpenFails({cause, Error("OpenCamera", "AddDeviceFilter fail.")});
}

Messages AddingTheGrabberFails(Messages causes) {
  causes.push_back(Error("OpenCamera", "AddSampleGrabberFilter fail."));
  return OpenFails(causes);
}

Messages GrabberSetupFails(const std::string& text) {
  return AddingTheGrabberFails(
      {Error("ConfigSampleGrabber", text), Error("AddSampleGrabberFilter", "ConfigSampleGrabber fail.")});
}

// --- Situations ---

class LogMessages;
using Situation = std::function<void(LogMessages&)>;

struct LoggedSituation {
  const char* name;
  Situation situation;
  Messages messages;  // all that the situation logs
};

void PrintTo(const LoggedSituation& c, std::ostream* out) { *out << c.name; }

class LogMessages : public CameraHandlerTest, public ::testing::WithParamInterface<LoggedSituation> {
 public:
  using CameraHandlerTest::cameraNum;
  using CameraHandlerTest::Close;
  using CameraHandlerTest::DeliverAndReceive;
  using CameraHandlerTest::handler;
  using CameraHandlerTest::host;
  using CameraHandlerTest::Open;
  using CameraHandlerTest::platform;
  using CameraHandlerTest::Query;
  using CameraHandlerTest::QueryAndRelease;
};

Situation QueryOf(const Pc& pc) {
  return [pc](LogMessages& test) {
    test.platform.SetPc(pc);
    test.Query();
  };
}

Situation FailingQuery(const std::string& operation, unsigned nth = 1, Answer answer = Fails()) {
  return [=](LogMessages& test) {
    test.platform.SetPc(LaptopPc({}));
    test.platform.AnswersNth(operation, nth, answer);
    test.Query();
  };
}

Situation OpenOf(const std::string& id, std::uint32_t fps = 30) {
  return [=](LogMessages& test) {
    test.QueryAndRelease();
    test.Open(id, 640, 480, fps);
  };
}

Situation FailingOpen(const std::string& operation, unsigned nth = 1, Answer answer = Fails()) {
  return [=](LogMessages& test) {
    test.QueryAndRelease();
    test.platform.AnswersNth(operation, nth, answer);
    test.Open();
  };
}

Situation WithOpenCamera(const Situation& situation) {
  return [=](LogMessages& test) {
    test.QueryAndRelease();
    ASSERT_EQ(test.Open(), NUVEQ_CAMERA_OK);
    test.platform.ClearJournal();
    situation(test);
  };
}

// Neither of these two occurs in a session.
void EncodeWithoutEncoder(LogMessages& /*test*/) {
  CameraOperator camera;
  FrameBufQueue& queue = CameraOperatorTestAccess::Queue(camera);
  EXPECT_TRUE(queue.Init(1, 16, 16, ColorSpace::kYuy2));
  queue.PutDataBuffer(queue.GetFreeBuffer());
  queue.Stop();
  CameraOperatorTestAccess::ClearStopFlag(camera);
  camera.EncodeH264();
}

void ConfigureNullGrabber(LogMessages& /*test*/) {
  CameraOperator camera;
  EXPECT_FALSE(camera.ConfigSampleGrabber(nullptr, 640, 480));
}

MediaType NullType() {
  MediaType type;
  type.isNull = true;
  return type;
}

MediaType WithoutInterval() {
  MediaType type = Yuy2(640, 480, 30);
  type.interval = 0;
  return type;
}

const std::string kTypeIsRead =
    Error(427, "ParseMediaType", "ParseMediaType success, width: 640, height:480,fps:30,subType:844715353");

std::vector<LoggedSituation> LoggedSituations() {
  return {
      {"NullTable",
       [](LogMessages&) {
         LoadedLibrary same(NUVEQ_LIBRARY_FILE);
         same.GetCameraHandler(nullptr);
       },
       {"ERROR CameraOperator:161 [CameraOperator]error param, cameraHandler is "
        "nullptr.(NUVEQGetCameraHandler)"}},

      // The query.
      {"QueryWithNullArgument",
       [](LogMessages& test) { test.handler.GetCapability(nullptr, &test.cameraNum); },
       {Error(968, "GetCameraCapabilityInner", "input parameter error cameraNum or allAbilities null")}},
      {"CountWithoutDeviceEnumerator", FailingQuery("CoCreateInstance"),
       QueryFindsNoCamera(Error(565, "CameraCount", "fail to create enumrate instance, error:-2147467259"))},
      {"CountInEmptyCategory", QueryOf({}),
       QueryFindsNoCamera(Error(573, "CameraCount", "fail to create enumrate class, error: 1"))},
      {"ActionCallbackFails",
       [](LogMessages& test) {
         test.platform.SetPc({{}, {scripted::PlugInCamera()}});
         for (const int result : {-55, 55}) {
           test.host.SetActionResult(result);
           test.Query();
         }
       },
       {kActionIsReported, ActionIsRefused("-55"), kNoCamera, kActionIsReported, ActionIsRefused("55"),
        kNoCamera}},
      {"RecordNotAllocated",
       FailingQuery("AllocateHostBlock"),
       {Error(1036, "GetCameraCapabilityInner", "fail to get allAbilities -3")}},
      {"BindWithoutDeviceEnumerator", FailingQuery("CoCreateInstance", 2),
       QueryCannotBind(
           Error(286, "BindDeviceFilter", "fail to create enumlate instance, error:-2147467259"))},
      {"BindWithoutClassEnumerator", FailingQuery("ICreateDevEnum::CreateClassEnumerator", 2),
       QueryCannotBind(Error(294, "BindDeviceFilter", "Enumerate device fail, error: -2147467259"))},
      {"CameraNotBound", FailingQuery("IMoniker::BindToObject"),
       QueryCannotBind(Error(308, "BindDeviceFilter", "BindFilter fail. cameraIndex:0"))},
      {"CameraBoundToNull", FailingQuery("IMoniker::BindToObject", 1, SucceedsWithNull()),
       QueryFindsNoPins(Error(456, "EnumPins", "invalid para, devFilter is nullptr"))},
      {"PinsNotEnumerated", FailingQuery("IBaseFilter::EnumPins"),
       QueryFindsNoPins(Error(463, "EnumPins", "fail to enum pins, error: -2147467259"))},
      {"PinNotRead", FailingQuery("IPin::QueryPinInfo"),
       QueryCannotReadPins(Error(375, "QueryCameraPinInfo", "QueryPinInfo fail, error: -2147467259"))},
      {"TypesNotEnumerated", FailingQuery("IPin::EnumMediaTypes"),
       QueryCannotReadPins(Error(383, "QueryCameraPinInfo", "EnumMediaTypes fail, error: -2147467259"))},
      {"NullType",
       QueryOf(LaptopPc({NullType()})),
       {Error(391, "QueryCameraPinInfo", "mediaType is nullptr.")}},
      {"TypeOfNegativeHeight",
       QueryOf(LaptopPc({Mjpg(1280, -720, 15)})),
       {Error(427, "ParseMediaType",
              "ParseMediaType success, width: 1280, height:-720,fps:15,subType:1196444237")}},
      {"TypeWithoutInterval",
       QueryOf(LaptopPc({WithoutInterval()})),
       {Error(434, "AvgTimePerFrameToFps", "avgTimePerFrame is 0."), kTypeIsRead}},
      {"TypeListedTwice",
       QueryOf(LaptopPc({Yuy2(640, 480, 30), Yuy2(640, 480, 30)})),
       {kTypeIsRead,
        "ERROR CameraCapabilityMgr.cpp:27 Add CameraCapabilitiy, Capabilitiy already "
        "exist.(CameraCapabilityMgr::Add)",
        kTypeIsRead}},

      // The open.
      {"Open", OpenOf("0"), {kOpenStarts, GraphStarts(), FormatIsSet(), kGraphSucceeds, kOpenSucceeds}},
      {"OpenOfNull",
       [](LogMessages& test) { test.handler.OpenCameraDevice(nullptr); },
       {kOpenStarts, Error(710, "OpenCameraInner", "invalid parameter")}},
      {"OpenOfInvalidId", OpenOf("x"), {kOpenStarts, Error(716, "OpenCameraInner", "invalid camera id")}},
      {"SecondOpen",
       WithOpenCamera([](LogMessages& test) { test.Open(); }),
       {kOpenStarts, Error(721, "OpenCameraInner", "Camera is already open.")}},
      {"OpenWithoutRate",
       OpenOf("0", 0),
       {kOpenStarts, GraphStarts("0"), Error(445, "FpsToAvgTimePerFrame", "fps is 0."), FormatIsSet("0"),
        kGraphSucceeds, kOpenSucceeds}},
      {"StatusCallbackFails",
       [](LogMessages& test) {
         test.host.SetStatusResult(-12);
         OpenOf("0")(test);
         test.host.SetStatusResult(12);
         test.Close();
       },
       {kOpenStarts, GraphStarts(), FormatIsSet(), kGraphSucceeds, StatusIsRefused("-12"), kOpenSucceeds,
        kCloseStarts, StatusIsRefused("12")}},
      {"EncoderNotInitialised", FailingOpen("VideoEncoder::Initialize"),
       EncoderSetupFails(Error(537, "InitVideoEncoder", "init video encoder failed"))},
      {"PoolNotCreated", FailingOpen("VideoFrame::AllocBuffer"),
       EncoderSetupFails(Error(546, "InitVideoEncoder", "AllocBuffer fail."))},
      {"GraphNotCreated",
       [](LogMessages& test) {
         test.platform.Answers("CoCreateInstance", Fails());
         // Ids saturate.
         test.Open("99999999999999999999");
       },
       GraphSetupFails(Error("InitCameraBasicInfo", "CoCreateInstance fail, error: -2147467259"),
                       "2147483647")},
      {"NoControlInterface", FailingOpen("IUnknown::QueryInterface", 1),
       GraphSetupFails(
           Error("InitCameraBasicInfo", "QueryInterface IID_IMediaControl fail, error: -2147467259"))},
      {"NoEventInterface", FailingOpen("IUnknown::QueryInterface", 2),
       GraphSetupFails(
           Error("InitCameraBasicInfo", "QueryInterface IID_IMediaEvent fail, error: -2147467259"))},
      {"UnknownCamera", OpenOf("1"),
       AddingTheCameraFails(Error("AddDeviceFilter", "BindDeviceFilter fail."))},
      {"CameraNotAdded", FailingOpen("IFilterGraph::AddFilter", 1),
       AddingTheCameraFails(Error("AddDeviceFilter", "AddFilter fail, error: -2147467259"))},
      {"GrabberNotCreated", FailingOpen("CoCreateInstance", 3),
       AddingTheGrabberFails({Error("AddSampleGrabberFilter",
                                    "CoCreateInstance sampleGrabberFilter fail, error: -2147467259")})},
      {"NullGrabber",
       ConfigureNullGrabber,
       {Error("ConfigSampleGrabber", "sampleGrabberFilter  is nullptr")}},
      {"NoGrabberInterface", FailingOpen("IUnknown::QueryInterface", 3),
       GrabberSetupFails("QueryInterface IID_ISampleGrabber fail, error: -2147467259")},
      {"GrabberRefusesMediaType", FailingOpen("ISampleGrabber::SetMediaType"),
       GrabberSetupFails("SetMediaType fail, error: -2147467259")},
      {"GrabberRefusesCallback", FailingOpen("ISampleGrabber::SetCallback"),
       GrabberSetupFails("fail to set grabber callback, error: -2147467259")},
      {"GrabberRefusesBuffering", FailingOpen("ISampleGrabber::SetBufferSamples"),
       GrabberSetupFails("fail to set buffer sample, error: -2147467259")},
      {"GrabberRefusesOneShot", FailingOpen("ISampleGrabber::SetOneShot"),
       GrabberSetupFails("fail to set one shot, error: -2147467259")},
      {"GrabberNotAdded", FailingOpen("IFilterGraph::AddFilter", 2),
       AddingTheGrabberFails({Error("AddSampleGrabberFilter", "AddFilter fail, error: -2147467259")})},
      {"FilterWithoutPinEnumerator", FailingOpen("IBaseFilter::EnumPins"),
       OpenFails({Error("QueryFilterPin", "EnumPins fail, error: -2147467259")})},
      {"FilterWithoutPin", FailingOpen("IEnumPins::Next"),
       OpenFails({Error("QueryFilterPin", "QueryFilterPin fail.")})},
      {"NoStreamConfiguration", FailingOpen("IUnknown::QueryInterface", 4),
       OpenFails({Error("SetCameraFormat", "fail to get amstream config, error: -2147467259")})},
      {"NoCurrentFormat", FailingOpen("IAMStreamConfig::GetFormat"),
       OpenFails({Error("SetCameraFormat", "fail to get camera parameter, error: -2147467259")})},
      {"FormatRefused", FailingOpen("IAMStreamConfig::SetFormat"),
       OpenFails({FormatIsSet(), Error("SetCameraFormat", "Set camera parameter fail, error:-2147467259")})},
      {"PinsNotConnected", FailingOpen("IGraphBuilder::Connect"),
       OpenFails({FormatIsSet(), Error("OpenCamera", "fail to Connect pin, error: -2147467259")})},
      {"RunFails",
       FailingOpen("IMediaControl::Run", 1, SFalse()),
       {kOpenStarts, GraphStarts(), FormatIsSet(), kGraphSucceeds,
        Error(763, "OpenCameraInner", "fail to update service status, error: 1")}},

      // Frames and the close.
      {"EmptyFrame",
       WithOpenCamera([](LogMessages& test) { test.platform.DeliverFrame(Frame(0, 0)); }),
       {"ERROR SampleGrabberCB:60 error buffer size0(SampleGrabberCB::BufferCB)"}},
      {"FrameOfNegativeLength",
       WithOpenCamera(
           [](LogMessages& test) { EXPECT_TRUE(test.platform.DeliverFrame(Frame(1, 1).data(), -1)); }),
       {}},
      {"EncoderFails",
       WithOpenCamera([](LogMessages& test) {
         test.platform.AnswersNth("VideoEncoder::Encode", 1, Answer{-7, false});
         test.platform.AnswersNth("VideoEncoder::Encode", 2, Answer{7, false});
         test.platform.DeliverFrame(Frame(kFrameSize, 1));
         test.platform.DeliverFrame(Frame(kFrameSize, 2));
         test.DeliverAndReceive(3);
       }),
       {EncodingFails("-7"), EncodingFails("7")}},
      {"DataCallbackFails",
       WithOpenCamera([](LogMessages& test) {
         for (const int result : {-7, 7}) {
           test.host.SetDataResult(result);
           test.DeliverAndReceive(1);
         }
       }),
       {PacketIsRefused("-7"), PacketIsRefused("7")}},
      {"NoEncoder", EncodeWithoutEncoder, {Error(1168, "EncodeH264", "videoEncoder is null")}},
      {"Close", [](LogMessages& test) { test.Close(); }, {kCloseStarts}},
  };
}

// --- Log statements of the sources ---

struct Statement {
  std::string file;
  int firstLine;
  int lastLine;
  std::string function;
  std::string loggedLine;  // a number or kOwnLine
  std::string text;        // up to the first argument

  bool Logs(const std::string& message) const {
    return message.find(":" + loggedLine + " " + text) != std::string::npos &&
           message.ends_with(function + ")");
  }
};

std::vector<Statement> StatementsOf(const std::filesystem::path& path) {
  static const std::regex kFunction(R"(^[A-Za-z_].*?(\w+)\()");
  static const std::regex kStart(R"((OPERATOR_LOG|CAMERA_LOG|camera_log::Write)\()");
  static const std::regex kStatement(
      R"x((OPERATOR|CAMERA)_LOG\(\w+, (?:"[\w.]+", )?(\d+|__LINE__), *L"([^"]*)")x");
  std::vector<Statement> statements;
  std::ifstream source(path);
  std::string function;
  int line = 0;
  for (std::string code; std::getline(source, code);) {
    ++line;
    std::smatch match;
    if (std::regex_search(code, match, kFunction)) {
      function = match[1];
    }
    if (!std::regex_search(code, kStart)) {
      continue;
    }
    const int firstLine = line;
    for (std::string more; code.find(");") == std::string::npos && std::getline(source, more); ++line) {
      code += more;
    }
    EXPECT_TRUE(std::regex_search(code, match, kStatement)) << path << ":" << firstLine << " " << code;
    statements.push_back({path.filename().string(), firstLine, line, function, match[2],
                          (match[1] == "OPERATOR" ? "[CameraOperator]" : "") + match[3].str()});
  }
  return statements;
}

std::vector<Statement> Statements() {
  std::vector<Statement> all;
  for (const auto& entry : std::filesystem::directory_iterator(NUVEQ_SOURCE_FOLDER)) {
    if (entry.path().filename() != "Log.h") {
      const std::vector<Statement> statements = StatementsOf(entry.path());
      all.insert(all.end(), statements.begin(), statements.end());
    }
  }
  return all;
}

// Formats a message, with kOwnLine for the line of a statement that logs its own line.
std::string Format(const scripted::LogLine& log) {
  static const std::vector<Statement> kStatements = Statements();
  const auto format = [&](const std::string& line) {
    return (log.level == log4cplus::ERROR_LOG_LEVEL  ? "ERROR "
            : log.level == log4cplus::WARN_LOG_LEVEL ? "WARN "
                                                     : "other level ") +
           log.file + ":" + line + " " + std::string(log.text.begin(), log.text.end());
  };
  const std::string withOwnLine = format(kOwnLine);
  const bool isOwnLine = std::any_of(kStatements.begin(), kStatements.end(), [&](const Statement& statement) {
    return statement.Logs(withOwnLine) && log.line >= statement.firstLine && log.line <= statement.lastLine;
  });
  return isOwnLine ? withOwnLine : format(std::to_string(log.line));
}

TEST_P(LogMessages, AreLoggedAsDocumented) {
  const LoggedSituation& c = GetParam();
  c.situation(*this);
  Messages messages;
  for (const scripted::LogLine& log : platform.Logs()) {
    messages.push_back(Format(log));
    // The compiler's signature of the function.
    const std::string function = messages.back().substr(messages.back().rfind('(') + 1);
    EXPECT_THAT(log.function, HasSubstr(" " + function.substr(0, function.size() - 1) + "("));
  }
  EXPECT_THAT(messages, ElementsAreArray(c.messages));
  Close();
  platform.DisposeOf("current media type");
}

INSTANTIATE_TEST_SUITE_P(Each, LogMessages, ::testing::ValuesIn(LoggedSituations()),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(LogMessageTable, HasEveryLogStatementOfTheSources) {
  Messages messages;
  for (const LoggedSituation& c : LoggedSituations()) {
    messages.insert(messages.end(), c.messages.begin(), c.messages.end());
  }
  const std::vector<Statement> statements = Statements();
  EXPECT_FALSE(statements.empty());
  for (const Statement& statement : statements) {
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [&](const std::string& message) { return statement.Logs(message); }))
        << statement.file << ":" << statement.firstLine << " " << statement.text;
  }
}

}  // namespace

// Reference model of a capability query.
#include <algorithm>

#include "ReferenceModel.h"

namespace fault {

namespace {

using scripted::Answer;

// True for a failure, or a success without output.
bool IsRefusal(const Answer& answer) { return answer.hr != S_OK || answer.null; }

std::string Number(HRESULT hr) { return std::to_string(hr); }

constexpr REFERENCE_TIME kUnitsPerSecond = 10'000'000;

}  // namespace

void ReferenceModel::Query() {
  int result = 0;
  std::uint32_t count = kNoCount;
  if (!FindCamera()) {
    result = -1000;
    Error(792, "UpdateServiceActionToNuveq", "report camera driver error");
    Note("action callback null 1 type 7 \"440\"");
    Error(981, "GetCameraCapabilityInner", "Can not find PC Camera");
  } else {
    count = 1;
    result = ReadCamera() ? 0 : -1000;
    // The record is built even if the camera cannot be read.
    if (const int made = MakeRecords(); made != 0) {
      result = made;
    }
    if (result != 0) {
      Error(1036, "GetCameraCapabilityInner", "fail to get allAbilities " + std::to_string(result));
      m_blocks.clear();
    }
  }
  Note("query returns " + std::to_string(result));
  Note("count " + std::to_string(count) + (result == 0 ? DescribeRecords() : ""));
}

bool ReferenceModel::FindCamera() {
  Answer answer = Call("CoCreateInstance");
  if (IsRefusal(answer)) {
    Error(565, "CameraCount", "fail to create enumrate instance, error:" + Number(answer.hr));
    return false;
  }
  answer = Call("ICreateDevEnum::CreateClassEnumerator");
  if (IsRefusal(answer)) {
    Error(573, "CameraCount", "fail to create enumrate class, error: " + Number(answer.hr));
    return false;
  }
  m_cameraName.reset();
  Call("IEnumMoniker::Reset");
  std::vector<std::string> names;
  for (auto device = m_devices.begin();; ++device) {
    answer = Call("IEnumMoniker::Next");
    if (answer.hr != S_OK || device == m_devices.end()) {
      break;
    }
    if (std::string name = answer.null ? std::string() : ReadDisplayName(*device); !name.empty()) {
      names.push_back(std::move(name));
    }
  }
  for (const std::string& id : ReadFixedIds()) {
    const auto found = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
      return name.find(id) != std::string::npos;
    });
    if (found != names.end()) {
      m_cameraName = *found;
      return true;
    }
  }
  return false;
}

std::string ReferenceModel::ReadDisplayName(const Device& device) {
  if (IsRefusal(Call("CoGetMalloc")) || IsRefusal(Call("CreateBindCtx"))) {
    return {};
  }
  if (IsRefusal(Call("IMoniker::GetDisplayName"))) {
    return {};
  }
  Call("IMalloc::Free");
  return device.name;
}

std::vector<std::string> ReferenceModel::ReadFixedIds() {
  // The plug-in device comes first in this list, too.
  const std::vector<std::string> usbDevices = {"plug-in", "built-in"};
  std::vector<std::string> ids;
  const Answer set = Call("SetupDiGetClassDevsW");
  if (set.hr != S_OK) {
    return ids;
  }
  // A null handle is valid: an empty set, which is closed.
  const std::size_t count = set.null ? 0 : usbDevices.size();
  for (std::size_t index = 0;; ++index) {
    if (Call("SetupDiEnumDeviceInterfaces").hr != S_OK || index == count) {
      break;
    }
    // Its output is not used.
    if (Call("SetupDiGetDeviceInterfaceDetailW").hr != S_OK) {
      continue;
    }
    const Answer element = Call("SetupDiEnumDeviceInfo");
    if (element.hr != S_OK) {
      continue;
    }
    // An unwritten element has no device node, so that the following calls fail.
    const Answer status = Call("CM_Get_DevNode_Status");
    if (element.null || IsRefusal(status) || usbDevices[index] == "plug-in") {
      continue;
    }
    if (IsRefusal(Call("CM_Get_Child"))) {
      continue;
    }
    // An empty id is valid and is contained in every name.
    if (const Answer id = Call("CM_Get_Device_IDA"); id.hr == S_OK) {
      ids.push_back(id.null ? std::string() : usbDevices[index]);
    }
  }
  Call("SetupDiDestroyDeviceInfoList");
  return ids;
}

ReferenceModel::Binding ReferenceModel::Bind() {
  if (!m_cameraName) {
    return Binding::kFailed;
  }
  Answer answer = Call("CoCreateInstance");
  if (IsRefusal(answer)) {
    Error(286, "BindDeviceFilter", "fail to create enumlate instance, error:" + Number(answer.hr));
    return Binding::kFailed;
  }
  answer = Call("ICreateDevEnum::CreateClassEnumerator");
  if (IsRefusal(answer)) {
    Error(294, "BindDeviceFilter", "Enumerate device fail, error: " + Number(answer.hr));
    return Binding::kFailed;
  }
  Call("IEnumMoniker::Reset");
  for (auto device = m_devices.begin();; ++device) {
    answer = Call("IEnumMoniker::Next");
    if (answer.hr != S_OK || device == m_devices.end()) {
      // A removed camera is not a failure of this step.
      return Binding::kNothing;
    }
    if (answer.null || ReadDisplayName(*device).find(*m_cameraName) == std::string::npos) {
      continue;
    }
    answer = Call("IMoniker::BindToObject");
    if (answer.hr != S_OK) {
      Error(308, "BindDeviceFilter", "BindFilter fail. cameraIndex:0");
      return Binding::kFailed;
    }
    m_bound = &*device;
    return answer.null ? Binding::kNothing : Binding::kFilter;
  }
}

bool ReferenceModel::ReadCamera() {
  m_rates.clear();
  m_sizes.clear();
  const Binding binding = Bind();
  if (binding == Binding::kFailed) {
    Error(337, "GetCameraCapabilities", "BindFilter fail, cameraIndex: 0");
    return false;
  }
  Answer pins{S_OK, true};
  if (binding == Binding::kNothing) {
    Error(456, "EnumPins", "invalid para, devFilter is nullptr");
  } else if (pins = Call("IBaseFilter::EnumPins"); IsRefusal(pins)) {
    Error(463, "EnumPins", "fail to enum pins, error: " + Number(pins.hr));
  }
  if (IsRefusal(pins)) {
    Error(343, "GetCameraCapabilities", "EnumPins fail, cameraIndex: 0");
    return false;
  }
  const Answer pin = Call("IEnumPins::Next");
  if (pin.hr == S_OK) {
    // One pin, then the end.
    Call("IEnumPins::Next");
  }
  m_table.clear();
  if (!IsRefusal(pin) && !ReadTypes(*m_bound)) {
    Error(349, "GetCameraCapabilities", "fail to query camera pin info.");
    return false;
  }
  return true;
}

bool ReferenceModel::ReadTypes(const Device& device) {
  if (const Answer answer = Call("IPin::QueryPinInfo"); answer.hr != S_OK) {
    Error(375, "QueryCameraPinInfo", "QueryPinInfo fail, error: " + Number(answer.hr));
    return false;
  }
  if (const Answer answer = Call("IPin::EnumMediaTypes"); IsRefusal(answer)) {
    Error(383, "QueryCameraPinInfo", "EnumMediaTypes fail, error: " + Number(answer.hr));
    return false;
  }
  for (auto type = device.types.begin();; ++type) {
    const Answer answer = Call("IEnumMediaTypes::Next");
    if (answer.hr != S_OK || type == device.types.end()) {
      return true;
    }
    if (answer.null) {
      Error(391, "QueryCameraPinInfo", "mediaType is nullptr.");
      continue;
    }
    ParseType(*type);
    // Frees the format block and the structure.
    Call("CoTaskMemFree");
    Call("CoTaskMemFree");
  }
}

void ReferenceModel::ParseType(const scripted::MediaType& type) {
  const auto fps = static_cast<unsigned>(kUnitsPerSecond / type.interval);
  m_rates.push_back(fps * 1000);
  m_sizes.push_back(std::to_string(type.width) + "x" + std::to_string(type.height));
  m_table.push_back(
      {type.width, type.height, fps, static_cast<bool>(IsEqualGUID(type.subType, MEDIASUBTYPE_MJPG))});
  Error(427, "ParseMediaType",
        "ParseMediaType success, width: " + std::to_string(type.width) +
            ", height:" + std::to_string(type.height) + ",fps:" + std::to_string(fps) +
            ",subType:" + std::to_string(type.subType.Data1));
}

int ReferenceModel::MakeRecords() {
  // Rates are sorted; all types have the same size.
  std::sort(m_rates.begin(), m_rates.end());
  m_sizes.erase(std::unique(m_sizes.begin(), m_sizes.end()), m_sizes.end());
  constexpr std::size_t kRecordSize = 48;
  constexpr std::size_t kIdSize = 64;
  constexpr std::size_t kAbilitySize = 32;
  constexpr std::size_t kPairSize = 8;
  if (!Allocate(kRecordSize) || !Allocate(kIdSize) || !Allocate(kAbilitySize)) {
    return -3;
  }
  if (!m_rates.empty() && !Allocate(kPairSize * m_rates.size())) {
    return -1000;
  }
  if (!m_sizes.empty() && !Allocate(kPairSize * m_sizes.size())) {
    return -3;
  }
  return 0;
}

bool ReferenceModel::Allocate(std::size_t size) {
  if (IsRefusal(Call("AllocateHostBlock"))) {
    return false;
  }
  m_blocks.push_back(size);
  return true;
}

std::string ReferenceModel::DescribeRecords() const {
  std::string text = ", id \"0\"";
  for (const unsigned rate : m_rates) {
    text += ", " + std::to_string(rate);
  }
  for (const std::string& size : m_sizes) {
    text += ", " + size;
  }
  return text;
}

}  // namespace fault

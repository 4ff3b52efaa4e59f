#include "FaultInjection.h"

#include <set>

#include "support/HostCallbacks.h"

namespace fault {

using support::kWaitTimeout;
using support::Persistence;

namespace {

using scripted::Answer;

// Operations that cannot report a failure.
const std::set<std::string>& OperationsWithoutResult() {
  static const std::set<std::string> operations = {"AVEncodePacket::AVEncodePacket",
                                                   "AVEncodePacket::~AVEncodePacket",
                                                   "CoTaskMemFree",
                                                   "CoUninitialize",
                                                   "PinModule",
                                                   "IMalloc::Free",
                                                   "UnpinModule",
                                                   "VideoEncoder::ReleaseEncoder",
                                                   "VideoFrame::ReleaseBuffer"};
  return operations;
}

// Operations with an output, which may succeed without writing it.
const std::set<std::string>& OperationsWithOutput() {
  static const std::set<std::string> operations = {"AllocateHostBlock",
                                                   "CM_Get_Child",
                                                   "CM_Get_DevNode_Status",
                                                   "CM_Get_Device_IDA",
                                                   "CoCreateInstance",
                                                   "CoGetMalloc",
                                                   "CreateBindCtx",
                                                   "IAMStreamConfig::GetFormat",
                                                   "IBaseFilter::EnumPins",
                                                   "ICreateDevEnum::CreateClassEnumerator",
                                                   "IEnumMediaTypes::Next",
                                                   "IEnumMoniker::Next",
                                                   "IEnumPins::Next",
                                                   "IMoniker::BindToObject",
                                                   "IMoniker::GetDisplayName",
                                                   "IPin::EnumMediaTypes",
                                                   "IPin::QueryDirection",
                                                   "IPin::QueryPinInfo",
                                                   "IUnknown::QueryInterface",
                                                   "SetupDiEnumDeviceInfo",
                                                   "SetupDiGetClassDevsW",
                                                   "SetupDiGetDeviceInterfaceDetailW",
                                                   "VideoEncoder::CreateDefaultEncoder",
                                                   "VideoEncoder::Encode",
                                                   "VideoFrame::AllocBuffer"};
  return operations;
}

bool CanReturn(const std::string& operation, const Answer& answer) {
  // Answers whose output does not match the result.
  const bool isOfOutput = answer.null == (answer.hr == S_OK) && answer.hr != S_FALSE;
  return isOfOutput ? OperationsWithOutput().contains(operation)
                    : !OperationsWithoutResult().contains(operation);
}

bool IsOf(Subject subject, const std::string& operation) {
  return (subject == Subject::kThreadStarts) == (operation == kThreadStart);
}

}  // namespace

void Faults::Begin(const Plan& plan) {
  const std::lock_guard lock(m_mutex);
  m_plan = plan;
  m_count = 0;
}

void Faults::End() {
  const std::lock_guard lock(m_mutex);
  m_plan = {};
}

std::optional<Answer> Faults::At(const std::string& operation) {
  const std::lock_guard lock(m_mutex);
  ++m_calls[operation];
  m_changed.notify_all();
  if (m_plan.number == 0 || !IsOf(m_plan.subject, operation) || !CanReturn(operation, m_plan.answer)) {
    return std::nullopt;
  }
  ++m_count;
  const bool isDue =
      m_plan.persistence == Persistence::kTransient ? m_count == m_plan.number : m_count >= m_plan.number;
  m_haveHappened = m_haveHappened || isDue;
  return isDue ? std::optional<Answer>(m_plan.answer) : std::nullopt;
}

bool Faults::HaveHappened() const {
  const std::lock_guard lock(m_mutex);
  return m_haveHappened;
}

std::uint64_t Faults::Calls(const std::string& operation) const {
  const std::lock_guard lock(m_mutex);
  const auto found = m_calls.find(operation);
  return found == m_calls.end() ? 0 : found->second;
}

bool Faults::WaitForCalls(const std::string& operation, std::uint64_t count) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kWaitTimeout, [&] { return m_calls[operation] >= count; });
}

}  // namespace fault

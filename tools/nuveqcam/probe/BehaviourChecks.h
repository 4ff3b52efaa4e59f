// Checks that the library and the camera behave as NUVEQCameraHandler.h documents.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "probe/PacketCapture.h"

namespace nuveqcam {

struct BehaviourResult {
  std::string check;  // "closeAfter1", "secondOpen"; the man page lists them
  std::string fault;  // human-readable; empty: as documented
};

struct BehaviourCheck {
  std::string name;
  // Returns the fault; empty if there is none or if the check was interrupted. Throws Failure if the camera
  // cannot be opened.
  std::function<std::string()> run;
};

class BehaviourChecks {
 public:
  // The request should be one that the camera accepts; capabilities are the result of an earlier query.
  BehaviourChecks(const ProbeSetup& setup, CameraRequest request, Capabilities capabilities);

  // In the order in which they should run. The object must outlive them. The camera is closed before and
  // after each one.
  std::vector<BehaviourCheck> All();

  // Runs a check; a failed open is a fault.
  static BehaviourResult Run(const BehaviourCheck& check);

 private:
  std::string CloseWithoutOpen() const;
  std::string CloseAfter(std::uint64_t packets) const;
  std::string OpenRepeatedly(int opens, std::uint64_t packets) const;
  std::string OpenWhileOpen() const;
  std::string QueryWhileOpen() const;
  std::string CaptureUntilKeyFrame() const;

  // A session without anything unusual.
  std::string PlainSession(const CaptureGoal& goal) const;
  // What is wrong with a session: its packets, its close and its reports. openIds are those of the opens that
  // the library has to report.
  std::string SessionFault(const CapturedStream& stream, const std::vector<std::string>& openIds) const;

  const ProbeSetup& m_setup;
  const CameraRequest m_request;
  const Capabilities m_capabilities;
};

}  // namespace nuveqcam

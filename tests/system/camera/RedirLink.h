// The device side of the usbredir protocol, over a Unix socket on which the virtual machine listens.
#pragma once

#include <usbredirparser.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "CameraModel.h"
#include "ControlPipe.h"
#include "support/FileDescriptor.h"

namespace uvc {

// The USB device behind the link. The link calls it for the requests of the virtual machine.
class RedirDevice {
 public:
  virtual ~RedirDevice() = default;
  virtual void OnHello() = 0;
  virtual void OnReset() = 0;
  virtual std::optional<Bytes> OnControl(const Setup& setup, std::span<const std::uint8_t> data) = 0;
  virtual bool OnSetConfiguration(std::uint8_t configuration) = 0;
  virtual std::uint8_t OnGetConfiguration() = 0;
  virtual bool OnSetInterface(std::uint8_t interface, std::uint8_t alternate) = 0;
  // A bulk IN transfer, to be completed with SendBulk. Returns false to stall.
  virtual bool OnBulk(std::uint64_t id, std::uint8_t endpoint, std::size_t length) = 0;
  // Returns the endpoint of the cancelled transfer, or nullopt if the transfer is already complete.
  virtual std::optional<std::uint8_t> OnCancel(std::uint64_t id) = 0;
};

class RedirLink {
 public:
  // socket: connected and non-blocking.
  RedirLink(FileDescriptor socket, const CameraModel& model, RedirDevice& device);

  int Socket() const { return m_socket.Get(); }
  // Processes received data. Returns false if the virtual machine has closed the connection. Throws
  // std::runtime_error for invalid data, and forwards the device's exceptions.
  bool Read();
  bool HasDataToWrite() const;
  bool Write();

  // Announces the device: plugs it in.
  void SendConnect();
  void SendBulk(std::uint64_t id, std::uint8_t endpoint, std::span<const std::uint8_t> data);

 private:
  struct DestroyParser {
    void operator()(usbredirparser* parser) const { usbredirparser_destroy(parser); }
  };
  struct PacketData;

  // Adapts methods to C callbacks. An exception is stored and rethrown after the parser has returned.
  template <auto Method, typename... Arguments>
  static void Forward(void* link, Arguments... arguments);
  template <typename... Arguments>
  static void Unexpected(void* link, Arguments... arguments);

  static int ReadSome(void* link, std::uint8_t* data, int count);
  static int WriteSome(void* link, std::uint8_t* data, int count);

  void SetCallbacks();
  void SetUnexpected();
  void Hello(usb_redir_hello_header* hello);
  void Reset();
  void FilterReject();
  void SetConfiguration(std::uint64_t id, usb_redir_set_configuration_header* header);
  void GetConfiguration(std::uint64_t id);
  void SendConfiguration(std::uint64_t id, bool isDone);
  void SetAlternate(std::uint64_t id, usb_redir_set_alt_setting_header* header);
  void GetAlternate(std::uint64_t id, usb_redir_get_alt_setting_header* header);
  void Control(std::uint64_t id, usb_redir_control_packet_header* header, std::uint8_t* data, int size);
  void Bulk(std::uint64_t id, usb_redir_bulk_packet_header* header, std::uint8_t* data, int size);
  void Cancel(std::uint64_t id);
  void SendBulkStatus(std::uint64_t id, std::uint8_t endpoint, std::uint8_t status,
                      std::span<const std::uint8_t> data);

  FileDescriptor m_socket;
  const CameraModel& m_model;
  RedirDevice& m_device;
  std::unique_ptr<usbredirparser, DestroyParser> m_parser;
  bool m_isClosed = false;
  std::exception_ptr m_error;
};

}  // namespace uvc

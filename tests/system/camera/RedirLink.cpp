#include "RedirLink.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <utility>

namespace uvc {
namespace {

void IgnoreLogMessage(void*, int, const char*) {}

// The index of an endpoint in usbredir's endpoint tables.
constexpr std::size_t SlotOf(std::uint8_t endpoint) { return (endpoint & 0x80U) >> 3 | (endpoint & 0x0FU); }

usb_redir_ep_info_header EndpointInfo(const CameraModel& model) {
  usb_redir_ep_info_header info{};
  std::ranges::fill(info.type, std::uint8_t{usb_redir_type_invalid});
  for (const std::size_t slot : {SlotOf(0x00), SlotOf(0x80)}) {
    info.type[slot] = usb_redir_type_control;
    info.max_packet_size[slot] = 64;
  }
  for (std::size_t i = 0; i < model.functions.size(); ++i) {
    const std::size_t stream = SlotOf(StreamEndpoint(i));
    info.type[stream] = usb_redir_type_bulk;
    info.interface[stream] = StreamInterface(i);
    info.max_packet_size[stream] = BulkPacketSize(model.speed);
  }
  return info;
}

std::uint8_t InterfaceCount(const CameraModel& model) { return ControlInterface(model.functions.size()); }

usb_redir_interface_info_header InterfaceInfo(const CameraModel& model) {
  usb_redir_interface_info_header info{};
  info.interface_count = InterfaceCount(model);
  for (std::uint8_t interface = 0; interface < InterfaceCount(model); ++interface) {
    info.interface[interface] = interface;
    info.interface_class[interface] = 0x0E;
    info.interface_subclass[interface] = IsStreamInterface(interface) ? 2 : 1;
  }
  return info;
}

}  // namespace

// Owns the data of a received packet.
struct RedirLink::PacketData {
  PacketData(usbredirparser* owner, std::uint8_t* bytes, int count)
      : parser(owner), data(bytes), size(static_cast<std::size_t>(count)) {}
  PacketData(const PacketData&) = delete;
  PacketData& operator=(const PacketData&) = delete;
  ~PacketData() {
    if (data != nullptr) {
      usbredirparser_free_packet_data(parser, data);
    }
  }
  std::span<const std::uint8_t> Bytes() const { return {data, data != nullptr ? size : 0}; }

  usbredirparser* parser;
  std::uint8_t* data;
  std::size_t size;
};

template <auto Method, typename... Arguments>
void RedirLink::Forward(void* link, Arguments... arguments) {
  auto* const self = static_cast<RedirLink*>(link);
  try {
    (self->*Method)(arguments...);
  } catch (...) {
    self->m_error = std::current_exception();
  }
}

// Handles requests for endpoint types that the camera does not announce.
template <typename... Arguments>
void RedirLink::Unexpected(void* link, Arguments...) {
  static_cast<RedirLink*>(link)->m_error =
      std::make_exception_ptr(std::runtime_error("unsupported request of the virtual machine"));
}

RedirLink::RedirLink(FileDescriptor socket, const CameraModel& model, RedirDevice& device)
    : m_socket(std::move(socket)), m_model(model), m_device(device), m_parser(usbredirparser_create()) {
  if (!m_parser) {
    throw std::bad_alloc();
  }
  SetCallbacks();
  SetUnexpected();
  std::array<std::uint32_t, USB_REDIR_CAPS_SIZE> capabilities{};
  // Without 32-bit lengths QEMU waits for each bulk transfer to complete before it submits the next one.
  for (const int capability :
       {usb_redir_cap_connect_device_version, usb_redir_cap_filter, usb_redir_cap_ep_info_max_packet_size,
        usb_redir_cap_64bits_ids, usb_redir_cap_32bits_bulk_length}) {
    usbredirparser_caps_set_cap(capabilities.data(), capability);
  }
  usbredirparser_init(m_parser.get(), "uvc_camera", capabilities.data(), USB_REDIR_CAPS_SIZE,
                      usbredirparser_fl_usb_host);
}

void RedirLink::SetCallbacks() {
  m_parser->priv = this;
  m_parser->log_func = IgnoreLogMessage;
  m_parser->read_func = ReadSome;
  m_parser->write_func = WriteSome;
  m_parser->hello_func = Forward<&RedirLink::Hello>;
  m_parser->reset_func = Forward<&RedirLink::Reset>;
  m_parser->filter_reject_func = Forward<&RedirLink::FilterReject>;
  m_parser->set_configuration_func = Forward<&RedirLink::SetConfiguration>;
  m_parser->get_configuration_func = Forward<&RedirLink::GetConfiguration>;
  m_parser->set_alt_setting_func = Forward<&RedirLink::SetAlternate>;
  m_parser->get_alt_setting_func = Forward<&RedirLink::GetAlternate>;
  m_parser->control_packet_func = Forward<&RedirLink::Control>;
  m_parser->bulk_packet_func = Forward<&RedirLink::Bulk>;
  m_parser->cancel_data_packet_func = Forward<&RedirLink::Cancel>;
}

void RedirLink::SetUnexpected() {
  m_parser->start_iso_stream_func = Unexpected;
  m_parser->stop_iso_stream_func = Unexpected;
  m_parser->start_interrupt_receiving_func = Unexpected;
  m_parser->stop_interrupt_receiving_func = Unexpected;
  m_parser->alloc_bulk_streams_func = Unexpected;
  m_parser->free_bulk_streams_func = Unexpected;
  m_parser->start_bulk_receiving_func = Unexpected;
  m_parser->stop_bulk_receiving_func = Unexpected;
  m_parser->filter_filter_func = Unexpected;
  m_parser->device_disconnect_ack_func = Unexpected;
  m_parser->iso_packet_func = Unexpected;
  m_parser->interrupt_packet_func = Unexpected;
}

int RedirLink::ReadSome(void* link, std::uint8_t* data, int count) {
  auto* const self = static_cast<RedirLink*>(link);
  const ssize_t got = recv(self->m_socket.Get(), data, static_cast<std::size_t>(count), 0);
  if (got > 0) {
    return static_cast<int>(got);
  }
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
    return 0;
  }
  self->m_isClosed = true;
  return -1;
}

int RedirLink::WriteSome(void* link, std::uint8_t* data, int count) {
  auto* const self = static_cast<RedirLink*>(link);
  const ssize_t put = send(self->m_socket.Get(), data, static_cast<std::size_t>(count), MSG_NOSIGNAL);
  if (put >= 0) {
    return static_cast<int>(put);
  }
  if (errno == EAGAIN || errno == EINTR) {
    return 0;
  }
  self->m_isClosed = true;
  return -1;
}

bool RedirLink::Read() {
  const int result = usbredirparser_do_read(m_parser.get());
  if (m_error) {
    std::rethrow_exception(std::exchange(m_error, nullptr));
  }
  if (result == usbredirparser_read_parse_error) {
    throw std::runtime_error("received invalid usbredir data");
  }
  return !m_isClosed;
}

bool RedirLink::HasDataToWrite() const { return usbredirparser_has_data_to_write(m_parser.get()) > 0; }

bool RedirLink::Write() {
  if (HasDataToWrite()) {
    usbredirparser_do_write(m_parser.get());
  }
  return !m_isClosed;
}

void RedirLink::Hello(usb_redir_hello_header*) { m_device.OnHello(); }

void RedirLink::Reset() { m_device.OnReset(); }

void RedirLink::FilterReject() { throw std::runtime_error("the virtual machine rejected the camera"); }

void RedirLink::SendConnect() {
  usb_redir_interface_info_header interfaces = InterfaceInfo(m_model);
  usbredirparser_send_interface_info(m_parser.get(), &interfaces);
  usb_redir_ep_info_header endpoints = EndpointInfo(m_model);
  usbredirparser_send_ep_info(m_parser.get(), &endpoints);
  usb_redir_device_connect_header connect{};
  connect.speed = m_model.speed == Speed::kHigh ? usb_redir_speed_high : usb_redir_speed_full;
  connect.device_class = 0xEF;
  connect.device_subclass = 2;
  connect.device_protocol = 1;
  connect.vendor_id = m_model.vendor;
  connect.product_id = m_model.product;
  connect.device_version_bcd = kDeviceVersion;
  usbredirparser_send_device_connect(m_parser.get(), &connect);
}

void RedirLink::SetConfiguration(std::uint64_t id, usb_redir_set_configuration_header* header) {
  SendConfiguration(id, m_device.OnSetConfiguration(header->configuration));
}

void RedirLink::GetConfiguration(std::uint64_t id) { SendConfiguration(id, true); }

void RedirLink::SendConfiguration(std::uint64_t id, bool isDone) {
  usb_redir_configuration_status_header answer{};
  answer.status = isDone ? usb_redir_success : usb_redir_stall;
  answer.configuration = m_device.OnGetConfiguration();
  usbredirparser_send_configuration_status(m_parser.get(), id, &answer);
}

void RedirLink::SetAlternate(std::uint64_t id, usb_redir_set_alt_setting_header* header) {
  usb_redir_alt_setting_status_header answer{};
  const bool isDone = m_device.OnSetInterface(header->interface, header->alt);
  answer.status = isDone ? usb_redir_success : usb_redir_stall;
  answer.interface = header->interface;
  usbredirparser_send_alt_setting_status(m_parser.get(), id, &answer);
}

void RedirLink::GetAlternate(std::uint64_t id, usb_redir_get_alt_setting_header* header) {
  usb_redir_alt_setting_status_header answer{};
  answer.status = header->interface < InterfaceCount(m_model) ? usb_redir_success : usb_redir_stall;
  answer.interface = header->interface;
  usbredirparser_send_alt_setting_status(m_parser.get(), id, &answer);
}

void RedirLink::Control(std::uint64_t id, usb_redir_control_packet_header* header, std::uint8_t* data,
                        int size) {
  const PacketData sent(m_parser.get(), data, size);
  const Setup setup{header->requesttype, header->request, header->value, header->index, header->length};
  std::optional<Bytes> answer = m_device.OnControl(setup, sent.Bytes());
  usb_redir_control_packet_header back = *header;
  back.status = answer ? usb_redir_success : usb_redir_stall;
  const bool isFromDevice = (setup.requestType & 0x80U) != 0;
  if (!answer) {
    back.length = 0;
  } else if (isFromDevice) {
    back.length = static_cast<std::uint16_t>(answer->size());
  }
  const bool hasData = answer && isFromDevice && !answer->empty();
  usbredirparser_send_control_packet(m_parser.get(), id, &back, hasData ? answer->data() : nullptr,
                                     hasData ? static_cast<int>(answer->size()) : 0);
}

void RedirLink::Bulk(std::uint64_t id, usb_redir_bulk_packet_header* header, std::uint8_t* data, int size) {
  const PacketData sent(m_parser.get(), data, size);
  const std::size_t length = header->length | std::size_t{header->length_high} << 16;
  if (!m_device.OnBulk(id, header->endpoint, length)) {
    SendBulkStatus(id, header->endpoint, usb_redir_stall, {});
  }
}

void RedirLink::Cancel(std::uint64_t id) {
  if (const std::optional<std::uint8_t> endpoint = m_device.OnCancel(id)) {
    SendBulkStatus(id, *endpoint, usb_redir_cancelled, {});
  }
}

void RedirLink::SendBulk(std::uint64_t id, std::uint8_t endpoint, std::span<const std::uint8_t> data) {
  SendBulkStatus(id, endpoint, usb_redir_success, data);
}

void RedirLink::SendBulkStatus(std::uint64_t id, std::uint8_t endpoint, std::uint8_t status,
                               std::span<const std::uint8_t> data) {
  usb_redir_bulk_packet_header header{};
  header.endpoint = endpoint;
  header.status = status;
  header.length = static_cast<std::uint16_t>(data.size() & 0xFFFF);
  header.length_high = static_cast<std::uint16_t>(data.size() >> 16);
  // The parser copies the data and does not modify it, although the parameter is not const.
  usbredirparser_send_bulk_packet(m_parser.get(), id, &header, const_cast<std::uint8_t*>(data.data()),
                                  static_cast<int>(data.size()));
}

}  // namespace uvc

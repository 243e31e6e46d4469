#include "app/display_profile.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QFile>
#include <QGuiApplication>
#include <xcb/xcb.h>

#include <memory>

namespace vg::app {
namespace {

constexpr const char* kColordService = "org.freedesktop.ColorManager";
constexpr int kDBusTimeoutMs = 500;  // a hung colord must not stall start-up

std::optional<std::vector<uint8_t>> readProfileFile(const QString& path) {
  QFile file(path);
  if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) return std::nullopt;
  const QByteArray bytes = file.read(64 << 20);
  if (bytes.isEmpty()) return std::nullopt;
  return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

}  // namespace

std::optional<std::vector<uint8_t>> colordDisplayProfile() {
  QDBusConnection bus = QDBusConnection::systemBus();
  if (!bus.isConnected()) return std::nullopt;
  QDBusInterface manager(kColordService, "/org/freedesktop/ColorManager", kColordService, bus);
  if (!manager.isValid()) return std::nullopt;
  manager.setTimeout(kDBusTimeoutMs);
  QDBusReply<QList<QDBusObjectPath>> devices = manager.call("GetDevicesByKind", QString("display"));
  if (!devices.isValid()) return std::nullopt;
  for (const QDBusObjectPath& device : devices.value()) {
    QDBusInterface deviceIf(kColordService, device.path(), "org.freedesktop.ColorManager.Device", bus);
    deviceIf.setTimeout(kDBusTimeoutMs);
    const auto profiles = qvariant_cast<QList<QDBusObjectPath>>(deviceIf.property("Profiles"));
    if (profiles.isEmpty()) continue;
    QDBusInterface profileIf(kColordService, profiles.first().path(), "org.freedesktop.ColorManager.Profile", bus);
    profileIf.setTimeout(kDBusTimeoutMs);
    if (auto bytes = readProfileFile(profileIf.property("Filename").toString())) return bytes;
  }
  return std::nullopt;
}

std::optional<std::vector<uint8_t>> x11DisplayProfile() {
  auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
  xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
  if (!connection) return std::nullopt;
  const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
  if (!screen) return std::nullopt;
  static constexpr char kAtom[] = "_ICC_PROFILE";
  std::unique_ptr<xcb_intern_atom_reply_t, decltype(&free)> atom(
      xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 1, sizeof kAtom - 1, kAtom), nullptr), &free);
  if (!atom || atom->atom == XCB_ATOM_NONE) return std::nullopt;
  // Length in 32-bit units: up to 16 MiB of profile.
  std::unique_ptr<xcb_get_property_reply_t, decltype(&free)> reply(
      xcb_get_property_reply(connection,
                             xcb_get_property(connection, 0, screen->root, atom->atom, XCB_GET_PROPERTY_TYPE_ANY, 0,
                                              4u << 20),
                             nullptr),
      &free);
  if (!reply || reply->format != 8) return std::nullopt;
  const int length = xcb_get_property_value_length(reply.get());
  if (length <= 0) return std::nullopt;
  const auto* data = static_cast<const uint8_t*>(xcb_get_property_value(reply.get()));
  return std::vector<uint8_t>(data, data + length);
}

DisplayProfile displayProfileFrom(const std::optional<std::vector<uint8_t>>& icc, std::string source) {
  if (icc) {
    if (auto transform = DisplayTransform::create(*icc)) return {std::move(transform), std::move(source)};
  }
  return {DisplayTransform::sRGB(), {}};
}

DisplayProfile detectDisplayProfile() {
  if (auto icc = colordDisplayProfile()) {
    DisplayProfile p = displayProfileFrom(icc, "colord");
    if (!p.source.empty()) return p;
  }
  if (auto icc = x11DisplayProfile()) return displayProfileFrom(icc, "X11");
  return {DisplayTransform::sRGB(), {}};
}

}  // namespace vg::app

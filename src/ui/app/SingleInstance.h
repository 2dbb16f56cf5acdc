#pragma once
// One Velmora window per user: the first launch owns a name on the session bus and answers
// org.freedesktop.Application there; a later launch (a file manager's "Open with", a second
// `velmora file.wav`) hands its files and folders to that window, which queues them and comes to
// the front, and ends. Two windows would each save their whole lists over the other's.
// Without a session bus every launch opens its own window, as before. [main thread]
#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace velmora {

// The name Velmora owns on the session bus, and the object that answers there.
inline constexpr const char* busName = "org.velmora.Velmora";
inline constexpr const char* busPath = "/org/velmora/Velmora";

// file:// URIs carrying a path's bytes exactly (percent-encoded), whatever their encoding, and
// back. A relative path is taken from the current folder.
QString fileUri(const std::string& path);
std::optional<std::string> pathOfUri(const QString& uri);

// What the running window does with what a later launch hands it. Paths are the file system's
// bytes.
struct Handover {
    std::function<void(const std::vector<std::string>&)> open;
    std::function<void()> raise;
};

class SingleInstance : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    enum class Role { first, handedOver, alone };

    // Claims the name, or hands `paths` to the window that holds it. `alone` without a bus (or
    // when the holder does not answer): the caller runs on its own.
    Role claim(const std::vector<std::string>& paths, QDBusConnection bus = QDBusConnection::sessionBus());
    // Until it is set, what arrives is kept and handed over then.
    void setHandover(Handover handover);

public slots:
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& action, const QVariantList& parameter, const QVariantMap& platformData);

private:
    void deliver(const std::vector<std::string>& paths);

    std::optional<Handover> handover_;
    std::vector<std::string> waiting_;
    bool raiseWaiting_ = false;
};

}  // namespace velmora

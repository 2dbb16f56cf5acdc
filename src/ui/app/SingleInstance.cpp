#include "ui/app/SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <filesystem>

namespace velmora {

QString fileUri(const std::string& path) {
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(path, ec);
    const std::string bytes = (ec ? std::filesystem::path(path) : absolute.lexically_normal()).native();
    return QStringLiteral("file://") + QString::fromLatin1(QByteArray::fromStdString(bytes).toPercentEncoding("/"));
}

std::optional<std::string> pathOfUri(const QString& uri) {
    if (!uri.startsWith(QStringLiteral("file://"))) return std::nullopt;
    QString rest = uri.mid(7);
    if (!rest.startsWith('/')) rest = rest.mid(rest.indexOf('/'));  // file://host/path
    return QByteArray::fromPercentEncoding(rest.toUtf8()).toStdString();
}

SingleInstance::Role SingleInstance::claim(const std::vector<std::string>& paths, QDBusConnection bus) {
    if (!bus.isConnected()) return Role::alone;
    // The object first, so a launch that finds the name taken always finds someone to answer.
    if (!bus.registerObject(QString::fromLatin1(busPath), this, QDBusConnection::ExportAllSlots)) return Role::alone;
    if (bus.registerService(QString::fromLatin1(busName))) return Role::first;
    bus.unregisterObject(QString::fromLatin1(busPath));

    QDBusMessage call;
    if (paths.empty()) {
        call = QDBusMessage::createMethodCall(QString::fromLatin1(busName), QString::fromLatin1(busPath),
                                              QStringLiteral("org.freedesktop.Application"), QStringLiteral("Activate"));
        call << QVariantMap{};
    } else {
        QStringList uris;
        for (const auto& p : paths) uris << fileUri(p);
        call = QDBusMessage::createMethodCall(QString::fromLatin1(busName), QString::fromLatin1(busPath),
                                              QStringLiteral("org.freedesktop.Application"), QStringLiteral("Open"));
        call << uris << QVariantMap{};
    }
    const QDBusMessage answer = bus.call(call, QDBus::Block, 10000);
    return answer.type() == QDBusMessage::ReplyMessage ? Role::handedOver : Role::alone;
}

void SingleInstance::setHandover(Handover handover) {
    handover_ = std::move(handover);
    if (!waiting_.empty()) handover_->open(std::exchange(waiting_, {}));
    if (std::exchange(raiseWaiting_, false)) handover_->raise();
}

void SingleInstance::deliver(const std::vector<std::string>& paths) {
    if (!handover_) {
        waiting_.insert(waiting_.end(), paths.begin(), paths.end());
        raiseWaiting_ = true;
        return;
    }
    if (!paths.empty()) handover_->open(paths);
    handover_->raise();
}

void SingleInstance::Activate(const QVariantMap&) { deliver({}); }

void SingleInstance::Open(const QStringList& uris, const QVariantMap&) {
    std::vector<std::string> paths;
    for (const auto& uri : uris)
        if (auto path = pathOfUri(uri)) paths.push_back(std::move(*path));
    deliver(paths);
}

void SingleInstance::ActivateAction(const QString&, const QVariantList&, const QVariantMap&) { deliver({}); }

}  // namespace velmora

#include "Examples/Console/SavedConnections.h"

#include <QSettings>

namespace {

const QString list = QStringLiteral("connections");
const QString name = QStringLiteral("name");
const QString host = QStringLiteral("host");
const QString port = QStringLiteral("port");
const QString user = QStringLiteral("user");
const QString keyFile = QStringLiteral("keyFile");

QList<SavedConnection> without(const QString &unwanted, QList<SavedConnection> connections) {
    connections.removeIf([&](const SavedConnection &one) { return one.name == unwanted; });
    return connections;
}

} // namespace

QList<SavedConnection> SavedConnections::all() const {
    QList<SavedConnection> connections;
    QSettings settings(mFile, QSettings::IniFormat);
    const int count = settings.beginReadArray(list);
    for (int i = 0; i < count; ++i) {
        settings.setArrayIndex(i);
        connections += {.name = settings.value(name).toString(),
                        .host = settings.value(host).toString(),
                        .port = settings.value(port).toInt(),
                        .user = settings.value(user).toString(),
                        .keyFile = settings.value(keyFile).toString()};
    }
    return connections;
}

bool SavedConnections::put(const SavedConnection &connection) const {
    return write(QList{connection} + without(connection.name, all()));
}

bool SavedConnections::remove(const QString &unwanted) const {
    return write(without(unwanted, all()));
}

bool SavedConnections::write(const QList<SavedConnection> &connections) const {
    QSettings settings(mFile, QSettings::IniFormat);
    settings.remove(list);
    settings.beginWriteArray(list, static_cast<int>(connections.size()));
    for (int i = 0; i < connections.size(); ++i) {
        const SavedConnection &one = connections.at(i);
        settings.setArrayIndex(i);
        settings.setValue(name, one.name);
        settings.setValue(host, one.host);
        settings.setValue(port, one.port);
        settings.setValue(user, one.user);
        settings.setValue(keyFile, one.keyFile);
    }
    settings.endArray();
    settings.sync();
    return settings.status() == QSettings::NoError;
}

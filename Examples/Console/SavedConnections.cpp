#include "Examples/Console/SavedConnections.h"

#include <QSettings>

namespace {

const QString listKey = QStringLiteral("connections");
const QString nameKey = QStringLiteral("name");
const QString hostKey = QStringLiteral("host");
const QString portKey = QStringLiteral("port");
const QString userKey = QStringLiteral("user");
const QString keyFileKey = QStringLiteral("keyFile");

QList<SavedConnection> without(const QString &unwanted, QList<SavedConnection> connections) {
    connections.removeIf([&](const SavedConnection &one) { return one.name == unwanted; });
    return connections;
}

} // namespace

QList<SavedConnection> SavedConnections::all() const {
    QList<SavedConnection> connections;
    QSettings settings(mFile, QSettings::IniFormat);
    const int count = settings.beginReadArray(listKey);
    for (int i = 0; i < count; ++i) {
        settings.setArrayIndex(i);
        connections += {.name = settings.value(nameKey).toString(),
                        .host = settings.value(hostKey).toString(),
                        .port = settings.value(portKey).toInt(),
                        .user = settings.value(userKey).toString(),
                        .keyFile = settings.value(keyFileKey).toString()};
    }
    return connections;
}

bool SavedConnections::put(const SavedConnection &connection) const {
    return write(QList{connection} + without(connection.name, all()));
}

bool SavedConnections::remove(const QString &name) const {
    return write(without(name, all()));
}

bool SavedConnections::write(const QList<SavedConnection> &connections) const {
    QSettings settings(mFile, QSettings::IniFormat);
    settings.remove(listKey);
    settings.beginWriteArray(listKey, static_cast<int>(connections.size()));
    for (int i = 0; i < connections.size(); ++i) {
        const SavedConnection &one = connections.at(i);
        settings.setArrayIndex(i);
        settings.setValue(nameKey, one.name);
        settings.setValue(hostKey, one.host);
        settings.setValue(portKey, one.port);
        settings.setValue(userKey, one.user);
        settings.setValue(keyFileKey, one.keyFile);
    }
    settings.endArray();
    settings.sync();
    return settings.status() != QSettings::AccessError; // lines that made no sense are gone
}

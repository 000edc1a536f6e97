// Where the user has connected to and wants to again, in a file of settings. No password is in it.
#pragma once

#include <QList>
#include <QString>

#include <utility>

struct SavedConnection {
    QString name;
    QString host;
    int port = 22;
    QString user;
    QString keyFile; // empty: none

    bool operator==(const SavedConnection &) const = default;
};

class SavedConnections {
  public:
    // The file, and its directory, are made when there is something to save.
    explicit SavedConnections(QString file) : mFile(std::move(file)) {}

    const QString &file() const { return mFile; }

    // The last one used first.
    QList<SavedConnection> all() const;

    // To the front, in place of the one of that name. Both answer whether the file could be
    // written.
    bool put(const SavedConnection &connection) const;
    bool remove(const QString &name) const;

  private:
    bool write(const QList<SavedConnection> &connections) const;

    const QString mFile;
};

// SPDX-License-Identifier: BSD-3-Clause

// What a user typed into a field of Qt's: as a secret, and how to forget it.
#pragma once

#include <SSHSession/Secret.h>

#include <QByteArray>
#include <QLineEdit>
#include <QString>

#include <cstddef>
#include <string_view>

namespace SSHPlatform {

// The field's text in UTF-8.
inline Secret secretOf(const QLineEdit &field) {
    QByteArray bytes = field.text().toUtf8();
    Secret secret = Secret::of({bytes.constData(), static_cast<std::size_t>(bytes.size())});
    wipe(bytes.data(), static_cast<std::size_t>(bytes.size()));
    return secret;
}

// Empties the field and overwrites its text, unless somebody else still shares that. Not reached
// are the smaller buffers that the text has grown out of while it was typed, the field's history,
// which holds each letter by itself, and what an input method or a clipboard knows.
inline void wipe(QLineEdit &field) {
    QString text = field.text();
    field.setText(QString()); // unlike `clear`, which keeps the text in the history
    if (text.isDetached())
        wipe(reinterpret_cast<char *>(text.data()),
             static_cast<std::size_t>(text.size()) * sizeof(QChar));
}

} // namespace SSHPlatform

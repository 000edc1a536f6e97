// A path that can be typed, chosen or left empty.
#pragma once

#include <QString>
#include <QWidget>

class QLineEdit;

class FileField final : public QWidget {
    Q_OBJECT

  public:
    // `name` says what the file is for; `placeholder` what it means that there is none.
    FileField(const QString &name, const QString &placeholder);

    QString path() const;
    void setPath(const QString &path);

  Q_SIGNALS:
    void returnPressed();

  private:
    void choose();

    const QString mName;
    QLineEdit *mPath;
};

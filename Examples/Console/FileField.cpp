#include "Examples/Console/FileField.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>

FileField::FileField(const QString &name, const QString &placeholder)
    : mName(name), mPath(new QLineEdit(this)) {
    mPath->setPlaceholderText(placeholder);
    mPath->setClearButtonEnabled(true);
    mPath->setAccessibleName(name);
    auto *const chooseButton = new QPushButton(QStringLiteral("Choose…"), this);
    auto *const row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(mPath, 1);
    row->addWidget(chooseButton);
    chooseButton->setAccessibleName(QStringLiteral("Choose ") + name);
    setFocusProxy(mPath);
    setFocusPolicy(Qt::StrongFocus); // else a label's key does not go here
    connect(mPath, &QLineEdit::returnPressed, this, &FileField::returnPressed);
    connect(chooseButton, &QPushButton::clicked, this, &FileField::choose);
}

QString FileField::path() const {
    return mPath->text();
}

void FileField::setPath(const QString &path) {
    mPath->setText(path);
}

void FileField::choose() {
    const QString path = QFileDialog::getOpenFileName(this, mName, mPath->text());
    if (!path.isEmpty())
        mPath->setText(path);
}

#include "Examples/Console/OutputPane.h"

#include "Examples/Console/Outcome.h"

#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QSaveFile>
#include <QToolButton>
#include <QVBoxLayout>

OutputPane::OutputPane(const QString &title)
    : mTitle(title), mHeading(new QLabel(title, this)), mText(new QPlainTextEdit(this)),
      mSave(new QToolButton(this)) {
    mText->setReadOnly(true);
    mText->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    mText->setLineWrapMode(QPlainTextEdit::NoWrap);
    mText->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    mText->setAccessibleName(title);
    mText->setMinimumHeight(3 * mText->fontMetrics().lineSpacing());
    mSave->setText(QStringLiteral("Save…"));
    mSave->setAccessibleName(QStringLiteral("Save ") + title);
    mSave->setEnabled(false);
    connect(mSave, &QToolButton::clicked, this, &OutputPane::save);

    auto *const header = new QHBoxLayout;
    header->addWidget(mHeading, 1);
    header->addWidget(mSave);
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addLayout(header);
    rows->addWidget(mText, 1);
}

void OutputPane::present(const SSHDataRef &bytes, const QString &shown) {
    mData = bytes;
    mText->setPlainText(shown);
    mSave->setEnabled(bytes && !bytes->empty());
    mHeading->setText(bytes ? QStringLiteral("%1 (%2)").arg(mTitle, sizeText(bytes->size()))
                            : mTitle);
}

void OutputPane::save() {
    const QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Save ") + mTitle);
    if (path.isEmpty())
        return;
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) &&
        file.write(mData->data(), static_cast<qint64>(mData->size())) >= 0 && file.commit())
        return;
    QMessageBox::warning(this, QStringLiteral("Not saved"), file.errorString());
}

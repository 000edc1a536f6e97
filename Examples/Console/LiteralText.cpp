#include "Examples/Console/LiteralText.h"

#include <QFontDatabase>

#include <algorithm>

namespace {

constexpr int fewestLines = 4;
constexpr int usualLineLength = 80;

int lineCount(const QString &text) {
    int count = 0;
    for (const QStringView line : text.tokenize(u'\n'))
        count += 1 + static_cast<int>(line.size()) / usualLineLength;
    return count;
}

int heightOfLines(const QPlainTextEdit &edit, int lines) {
    const auto margin = static_cast<int>(edit.document()->documentMargin());
    const QFontMetrics font = edit.fontMetrics();
    // With some room: a last line that only just fits counts as hidden, and has a scroll bar.
    return lines * font.lineSpacing() + font.descent() + 2 * (edit.frameWidth() + margin);
}

} // namespace

LiteralText::LiteralText(const QString &name, QWidget *parent) : QPlainTextEdit(parent) {
    setReadOnly(true);
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setAccessibleName(name);
    hide();
}

void LiteralText::present(const QString &text, int most) {
    setPlainText(text);
    const int lines = lineCount(text);
    setMinimumHeight(heightOfLines(*this, std::min(lines, fewestLines)));
    setMaximumHeight(heightOfLines(*this, std::min(lines, most)));
    setVisible(!text.isEmpty());
}

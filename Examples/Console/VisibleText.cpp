#include "Examples/Console/VisibleText.h"

#include <SSHSession/PrintableText.h>

#include <utility>

namespace {

// Control characters and those that steer the direction or the breaking of lines.
bool hidesItself(const QChar &character) {
    if (character >= u' ' && character <= u'~')
        return false; // most of what comes; asking for its category takes longer
    return character.category() == QChar::Other_Control ||
           character.category() == QChar::Other_Format || character == QChar::LineSeparator ||
           character == QChar::ParagraphSeparator;
}

QString codeOf(const QChar &character) {
    return QStringLiteral("<U+%1>").arg(QString::number(character.unicode(), 16).toUpper(), 4,
                                        QLatin1Char('0'));
}

} // namespace

QString visibleText(std::string_view bytes) {
    const QString decoded = QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
    QString text;
    text.reserve(decoded.size());
    for (const QChar &character : decoded) {
        const bool isLayout = character == QLatin1Char('\n') || character == QLatin1Char('\t');
        if (hidesItself(character) && !isLayout)
            text += codeOf(character);
        else
            text += character;
    }
    return text;
}

QString VisibleTextStream::take(std::string_view piece) {
    const std::string bytes = std::exchange(mKept, {}).append(piece);
    const std::size_t end = bytes.size() - SSHPlatform::unfinishedSize(bytes);
    mKept = bytes.substr(end);
    return visibleText(std::string_view(bytes).substr(0, end));
}

QString VisibleTextStream::rest() {
    return visibleText(std::exchange(mKept, {}));
}

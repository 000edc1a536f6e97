#include "Platform/Qt/AlertDialog.h"

#include "Platform/Qt/AlertText.h"
#include "Platform/Qt/QtImage.h"
#include "Platform/Qt/QtNib.h"

#include <QAccessible>
#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QSocketNotifier>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>
#include <chrono>
#include <utility>

namespace SSHPlatform {

namespace {

constexpr int textWidth = 440;
constexpr int iconSize = 64;
constexpr int margin = 20;

QFont emphasized(QFont font) {
    font.setBold(true);
    return font;
}

constexpr const char *returnKey = "\r";

constexpr std::chrono::milliseconds settlingTime(500);

bool isReturn(const QKeyEvent &key) {
    return key.key() == Qt::Key_Return || key.key() == Qt::Key_Enter;
}

// The key as key equivalents write it; the keypad's Enter counts as Return.
QString keyEquivalentOf(const QKeyEvent &key) {
    return isReturn(key) ? QString(QLatin1String(returnKey)) : key.text();
}

QWidget *windowOfTheUser() {
    if (QWidget *const active = QApplication::activeWindow())
        return active;
    for (QWidget *const widget : QApplication::topLevelWidgets())
        if (widget->isVisible() && widget->windowType() == Qt::Window)
            return widget;
    return nullptr;
}

// An ampersand alone would make the letter behind it a key.
QString literalTitle(const std::string &title) {
    return QString::fromStdString(title).replace(QLatin1Char('&'), QStringLiteral("&&"));
}

QIcon defaultIcon(AlertStyle style, const QStyle &look) {
    if (style == AlertStyle::Critical)
        return look.standardIcon(QStyle::SP_MessageBoxCritical);
    const QIcon application = QApplication::windowIcon();
    return application.isNull() ? look.standardIcon(QStyle::SP_MessageBoxInformation) : application;
}

// Left to right or right to left, as the platform's own dialogs have it.
bool firstButtonIsRightmost(const QWidget &dialog) {
    const int layout = dialog.style()->styleHint(QStyle::SH_DialogButtonLayout, nullptr, &dialog);
    return layout == 1 || layout == 3; // QDialogButtonBox::MacLayout, GnomeLayout
}

} // namespace

void whenWithdrawn(const Alert &alert, QObject *owner, const std::function<void()> &action) {
    if (alert.withdrawal < 0)
        return;
    auto *const notifier = new QSocketNotifier(alert.withdrawal, QSocketNotifier::Read, owner);
    QObject::connect(notifier, &QSocketNotifier::activated, owner, [notifier, action] {
        notifier->setEnabled(false); // the descriptor stays readable
        action();
    });
}

AlertDialog::AlertDialog(const Alert &alert, const std::string &defaultTitle)
    : mSettling(new QTimer(this)) {
    mSettling->setObjectName(QStringLiteral("settling"));
    mSettling->setSingleShot(true);
    mSettling->setInterval(settlingTime);
    QCoreApplication::instance()->installEventFilter(this);
    setAccessibleName(QString::fromStdString(alert.messageText));
    setAccessibleDescription(QString::fromStdString(alert.informativeText));
    setWindowTitle(QGuiApplication::applicationDisplayName());
    setAttribute(Qt::WA_QuitOnClose, false); // an alert is never the application's last window
    whenWithdrawn(alert, this, [this] { reject(); });
    setFocusPolicy(Qt::StrongFocus);
    setFocus(); // rather than one of the texts; an accessory's field takes it from here
    auto *const columns = new QHBoxLayout;
    columns->setSpacing(margin);
    columns->addWidget(makeIcon(alert), 0, Qt::AlignTop);
    columns->addWidget(makeContents(alert), 1);
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(margin, margin, margin, margin);
    rows->setSpacing(margin);
    rows->setSizeConstraint(QLayout::SetFixedSize);
    rows->addLayout(columns);
    rows->addWidget(makeButtons(alert, defaultTitle));
}

// The accessory goes back to the nib that owns it.
AlertDialog::~AlertDialog() {
    if (!mAccessory)
        return;
    mAccessory->hide();
    mAccessory->setParent(mAccessoryOwner);
}

AlertAnswer AlertDialog::ask() {
    QAccessibleEvent announcement(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&announcement);
    placeOver(windowOfTheUser());
    exec();
    return mAnswer;
}

// From when the user can see it. A timer measures, because it runs out no sooner than the event
// loop has come round to it, behind the keys that waited there.
bool AlertDialog::event(QEvent *event) {
    const bool isFirstPaint = event->type() == QEvent::Paint && !std::exchange(mIsPainted, true);
    if (isFirstPaint || event->type() == QEvent::Show || event->type() == QEvent::WindowActivate)
        mSettling->start();
    return QDialog::event(event);
}

// Of the whole application: a key may be released in another window than it was pressed in.
bool AlertDialog::eventFilter(QObject *watched, QEvent *event) {
    const auto *const key = dynamic_cast<const QKeyEvent *>(event);
    if (key && event->type() == QEvent::KeyRelease) {
        mReleasedKey = key->key();
        mReleasedAt = key->timestamp();
    }
    if (key && event->type() == QEvent::KeyPress && pressFocusedButton(watched, *key))
        return true;
    return QDialog::eventFilter(watched, event);
}

// Without a key equivalent a button may have the focus. Answers whether the key is done with.
bool AlertDialog::pressFocusedButton(QObject *watched, const QKeyEvent &key) {
    const auto button = std::find(mButtons.begin(), mButtons.end(), watched);
    if (button == mButtons.end() || (!isReturn(key) && key.key() != Qt::Key_Space))
        return false;
    const bool isDone = isReturn(key) || !isMeant(key);
    if (isReturn(key) && isMeant(key))
        (*button)->click();
    return isDone;
}

// Repeats of a held key do not always say so: some of X11's look like a release and a press, at the
// same time.
bool AlertDialog::isMeant(const QKeyEvent &key) const {
    const bool isRepeat =
        key.isAutoRepeat() ||
        (key.timestamp() != 0 && key.timestamp() == mReleasedAt && key.key() == mReleasedKey);
    const bool isModified = (key.modifiers() & ~Qt::KeypadModifier) != 0;
    return !isRepeat && !isModified && (!mSettling->isActive() || hasTypedText());
}

bool AlertDialog::hasTypedText() const {
    const auto *const field = qobject_cast<const QLineEdit *>(focusWidget());
    return field && field->isModified() && !field->text().isEmpty();
}

void AlertDialog::keyPressEvent(QKeyEvent *event) {
    const auto button = mKeys.find(keyEquivalentOf(*event));
    if (button != mKeys.end() && isMeant(*event))
        button->second->click();
    else if (event->matches(QKeySequence::Cancel) && mEscapeCloses)
        reject();
    else
        event->ignore();
}

QWidget *AlertDialog::makeIcon(const Alert &alert) {
    const auto *const image = dynamic_cast<const QtImage *>(alert.icon.get());
    auto *const label = new QLabel(this);
    const QIcon icon = image ? image->icon : defaultIcon(alert.style, *style());
    label->setPixmap(icon.pixmap({iconSize, iconSize}, devicePixelRatio()));
    return label;
}

QWidget *AlertDialog::makeContents(const Alert &alert) {
    auto *const contents = new QWidget(this);
    auto *const layout = new QVBoxLayout(contents);
    layout->setContentsMargins(0, 0, 0, 0);
    const int tallest = screen()->availableSize().height() / 3;
    const QString message = QString::fromStdString(alert.messageText);
    const QString details = QString::fromStdString(alert.informativeText);
    const auto addText = [&](const QString &name, const QString &text, const QFont &look) {
        auto *const widget = new AlertText(text, look, textWidth, tallest);
        widget->setAccessibleName(name);
        layout->addWidget(widget);
    };
    addText(QStringLiteral("Message"), message, emphasized(font()));
    if (!details.isEmpty())
        addText(QStringLiteral("Details"), details, font());
    borrowAccessory(alert, layout);
    layout->addStretch();
    return contents;
}

void AlertDialog::borrowAccessory(const Alert &alert, QBoxLayout *layout) {
    const auto *const view = dynamic_cast<WidgetHolder *>(alert.accessoryView);
    if (!view || !view->widget)
        return;
    mAccessory = view->widget;
    mAccessoryOwner = mAccessory->parentWidget();
    layout->addWidget(mAccessory);
    mAccessory->show();
    if (auto *const field = mAccessory->findChild<QLineEdit *>())
        field->setFocus();
}

QWidget *AlertDialog::makeButtons(const Alert &alert, const std::string &defaultTitle) {
    const auto buttons =
        alert.buttons.empty() ? std::vector<AlertButton>{{defaultTitle}} : alert.buttons;
    auto *const row = new QWidget(this);
    auto *const layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (std::size_t i = 0; i < buttons.size(); ++i)
        layout->insertWidget(firstButtonIsRightmost(*this) ? 0 : -1, makeButton(buttons[i], i));
    layout->insertStretch(0);
    return row;
}

QPushButton *AlertDialog::makeButton(const AlertButton &button, std::size_t index) {
    auto *const widget = new QPushButton(literalTitle(button.title), this);
    mButtons.push_back(widget);
    widget->setAutoDefault(false);
    widget->setFocusPolicy(button.keyEquivalent ? Qt::NoFocus : Qt::StrongFocus);
    connect(widget, &QPushButton::clicked, this, [this, index] {
        mAnswer = answerOfButton(index);
        accept();
    });
    assignKey(widget, button, index);
    return widget;
}

// What the toolkit would choose: Return presses the first button, Escape closes.
void AlertDialog::assignKey(QPushButton *widget, const AlertButton &button, std::size_t index) {
    mEscapeCloses = mEscapeCloses && !button.keyEquivalent;
    const auto key = button.keyEquivalent.value_or(index == 0 ? returnKey : "");
    if (key.empty())
        return;
    mKeys.emplace(QString::fromStdString(key), widget);
    widget->setDefault(key == returnKey);
}

// Without one of its own the alert belongs to the window that the user sees.
void AlertDialog::placeOver(const QWidget *window) {
    if (!window || !window->windowHandle())
        return;
    winId(); // makes the handle
    windowHandle()->setTransientParent(window->windowHandle());
    adjustSize();
    QRect place(QPoint(), size());
    place.moveCenter(window->frameGeometry().center());
    const QRect available = window->screen()->availableGeometry();
    place.moveRight(std::min(place.right(), available.right()));
    place.moveBottom(std::min(place.bottom(), available.bottom()));
    place.moveLeft(std::max(place.left(), available.left()));
    place.moveTop(std::max(place.top(), available.top()));
    move(place.topLeft());
}

} // namespace SSHPlatform

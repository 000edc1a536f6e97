// One alert on the screen.
//
// Qt gives buttons keys of its own: Escape to the rejecting one, Return and Space to the focused
// one, Alt and a letter to a title with an ampersand. A button with a key equivalent gets none of
// these: it answers its key and the mouse, nothing else.
//
// A key was meant for something else when the user cannot have read the question yet, or has held
// it down since before: no button answers it. Return behind a text that has just been typed is
// meant.
#pragma once

#include <SSHSession/Alert.h>

#include <QDialog>
#include <QPointer>

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

class QBoxLayout;
class QPushButton;
class QTimer;

namespace SSHPlatform {

// Calls `action` once, from the event loop, when nobody waits for the alert's answer any more.
void whenWithdrawn(const Alert &alert, QObject *owner, const std::function<void()> &action);

class AlertDialog final : public QDialog {
  public:
    // `alert` must outlive the dialog, which borrows its accessory view.
    AlertDialog(const Alert &alert, const std::string &defaultTitle);
    AlertDialog(const AlertDialog &) = delete;
    AlertDialog &operator=(const AlertDialog &) = delete;
    ~AlertDialog() override;

    // Shows the alert until it is answered, closed, or the application quits.
    AlertAnswer ask();

  protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

  private:
    QWidget *makeContents(const Alert &alert);
    QWidget *makeIcon(const Alert &alert);
    QWidget *makeButtons(const Alert &alert, const std::string &defaultTitle);
    QPushButton *makeButton(const AlertButton &button, std::size_t index);
    void assignKey(QPushButton *widget, const AlertButton &button, std::size_t index);
    void borrowAccessory(const Alert &alert, QBoxLayout *layout);
    void placeOver(const QWidget *window);
    bool isMeant(const QKeyEvent &key) const;
    bool hasTypedText() const;
    bool pressFocusedButton(QObject *watched, const QKeyEvent &key);

    AlertAnswer mAnswer = AlertAnswer::Refused;
    std::map<QString, QPushButton *> mKeys;
    std::vector<QPushButton *> mButtons;
    bool mEscapeCloses = true;
    bool mIsPainted = false;
    QTimer *const mSettling; // while it runs, no key presses a button
    int mReleasedKey = 0;
    quint64 mReleasedAt = 0;
    QPointer<QWidget> mAccessory;
    QPointer<QWidget> mAccessoryOwner;
};

} // namespace SSHPlatform

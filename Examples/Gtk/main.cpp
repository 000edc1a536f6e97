// Runs one command on a server, and asks in dialogs of GTK 3: all that a toolkit has to give to the
// library, in one file. Docs/guide.md tells about it.
#include <SSHSession/Platform.h>
#include <SSHSession/SSHFinding.h>
#include <SSHSession/SSHSession.h>

#include <glib-unix.h>
#include <gtk/gtk.h>

#include <cstdint>
#include <future>
#include <iostream>
#include <thread>
#include <utility>

using namespace SSHPlatform;

namespace {

// GLib lets any thread destroy a source, and gives its action back at once.
class GtkTimer final : public RepeatingTimer {
  public:
    using Action = std::function<void()>;
    GtkTimer(std::chrono::milliseconds interval, Action action)
        : mSource(g_timeout_source_new(static_cast<guint>(interval.count()))) {
        const auto call = [](gpointer kept) -> gboolean {
            (*static_cast<Action *>(kept))();
            return G_SOURCE_CONTINUE;
        };
        const auto release = [](gpointer kept) { delete static_cast<Action *>(kept); };
        g_source_set_callback(mSource, call, new Action(std::move(action)), release);
        g_source_attach(mSource, nullptr);
    }
    ~GtkTimer() override { g_source_unref(mSource); }
    void invalidate() noexcept override { g_source_destroy(mSource); }

  private:
    GSource *const mSource;
};

// This loop ends after the last thread that asks. One that may end before has to let those go that
// wait: see runAndWait in MainLoop.h.
class GtkMainLoop final : public MainLoop {
  public:
    bool isMainThread() const noexcept override { return std::this_thread::get_id() == mThread; }

    bool runAndWait(const std::function<void()> &work) noexcept override {
        if (isMainThread()) {
            work();
            return true;
        }
        auto *const task = new Task(work);
        const std::future<void> done = task->get_future();
        g_idle_add(
            [](gpointer kept) -> gboolean {
                const std::unique_ptr<Task> owned(static_cast<Task *>(kept));
                (*owned)();
                return G_SOURCE_REMOVE;
            },
            task);
        done.wait();
        return true;
    }

    std::shared_ptr<RepeatingTimer>
    scheduleRepeating(std::chrono::milliseconds interval,
                      std::function<void()> action) noexcept override {
        return std::make_shared<GtkTimer>(interval, std::move(action));
    }

  private:
    using Task = std::packaged_task<void()>;
    const std::thread::id mThread = std::this_thread::get_id();
};

// A button without a key is for the mouse alone.
void addButton(GtkDialog *dialog, const AlertButton &button, int response) {
    GtkWidget *const widget = gtk_button_new_with_label(button.title.c_str());
    gtk_widget_set_can_default(widget, TRUE);
    gtk_widget_set_can_focus(widget, button.keyEquivalent != "");
    gtk_widget_show(widget);
    gtk_dialog_add_action_widget(dialog, widget, response);
    const bool isFirst = response == static_cast<int>(AlertAnswer::FirstButton);
    if (button.keyEquivalent.value_or(isFirst ? "\r" : "") == "\r")
        gtk_dialog_set_default_response(dialog, response);
}

class GtkPresenter final : public AlertPresenter {
  public:
    AlertAnswer runModal(const Alert &alert) noexcept override {
        const bool warns = alert.style == AlertStyle::Critical;
        GtkWidget *const window = gtk_message_dialog_new(
            nullptr, GTK_DIALOG_MODAL, warns ? GTK_MESSAGE_WARNING : GTK_MESSAGE_QUESTION,
            GTK_BUTTONS_NONE, "%s", alert.messageText.c_str()); // never as markup
        auto *const dialog = GTK_DIALOG(window);
        gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(window), "%s",
                                                 alert.informativeText.c_str());
        gtk_window_set_title(GTK_WINDOW(window), "SSH");
        for (std::size_t i = 0; i < alert.buttons.size(); ++i)
            addButton(dialog, alert.buttons[i], static_cast<int>(answerOfButton(i)));
        if (alert.buttons.empty())
            addButton(dialog, {"Close"}, static_cast<int>(AlertAnswer::FirstButton));

        PlainTextField *const field = alert.plainTextField();
        GtkWidget *const entry = field ? gtk_entry_new() : nullptr;
        if (field) {
            gtk_entry_set_visibility(GTK_ENTRY(entry), !field->isSecret());
            gtk_entry_set_activates_default(GTK_ENTRY(entry), TRUE);
            gtk_container_add(GTK_CONTAINER(gtk_dialog_get_content_area(dialog)), entry);
            gtk_widget_show(entry);
            gtk_widget_grab_focus(entry);
        }

        const guint watch = alert.withdrawal < 0 ? 0 : watchFor(alert.withdrawal, dialog);
        const int response = gtk_dialog_run(dialog);
        if (watch != 0)
            g_source_remove(watch);
        if (field) {
            std::string typed = gtk_entry_get_text(GTK_ENTRY(entry));
            field->setStringValue(typed);
            wipe(typed);
        }
        gtk_widget_destroy(window);
        // Escape, a closed window and a withdrawal are negative.
        return response < 0 ? AlertAnswer::Refused : static_cast<AlertAnswer>(response);
    }

  private:
    static guint watchFor(int withdrawal, GtkDialog *dialog) {
        const auto takeDown = [](gint, GIOCondition, gpointer shown) -> gboolean {
            gtk_dialog_response(GTK_DIALOG(shown), GTK_RESPONSE_NONE);
            return G_SOURCE_CONTINUE;
        };
        return g_unix_fd_add(withdrawal, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), takeDown,
                             dialog);
    }
};

// On a thread of its own, so that the main thread can serve the dialogs.
int runCommand(SSHSession &session, const char *text) {
    const auto command = std::make_shared<SSHCommand>();
    command->setCommand(text);
    if (session.start(nullptr) && session.execute(command, nullptr)) {
        std::cout << command->stdoutData()->view() << std::flush;
        session.stop();
        return command->exitStatus();
    }
    Alert problem;
    problem.style = AlertStyle::Critical;
    const SSHFacts facts = session.examinedFacts();
    problem.messageText = facts.error->localizedDescription().value_or("It did not work.");
    for (const SSHFinding &finding : SSHFindings(facts))
        problem.informativeText += finding.text + ' ' + finding.step + '\n';
    askOnMainThread([&] { alertPresenter()->runModal(problem); });
    return 255;
}

} // namespace

int main(int argc, char **argv) {
    gtk_init(&argc, &argv);
    if (argc != 6) {
        std::cerr << "Usage: " << argv[0] << " HOST PORT USER KEYFILE COMMAND\n";
        return 255;
    }
    install(std::make_shared<GtkMainLoop>(), std::make_shared<GtkPresenter>());
    const auto session = SSHSession::sessionWithHost(
        argv[1], static_cast<std::uint16_t>(std::stoi(argv[2])), argv[3], std::nullopt, argv[4],
        SSHSessionOptions::recommended());
    int status = 0;
    std::thread worker([&] {
        status = runCommand(*session, argv[5]);
        g_idle_add([](gpointer) -> gboolean { return gtk_main_quit(), G_SOURCE_REMOVE; }, nullptr);
    });
    gtk_main();
    worker.join();
    return status;
}

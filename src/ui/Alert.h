#pragma once

// A question put to the user: a message, an informative line and buttons, shown either
// window-modal on a window (a sheet: the call returns at once and a completion gets the answer)
// or application-modal (the call returns the answer). Answers are the button's place: 1000 for
// the first button added, 1001 for the second, and so on.

#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class QMessageBox;
class QWidget;

namespace pindle::ui {

class Alert
{
public:
    enum class Style
    {
        warning,
        informational,
        critical
    };

    static constexpr int firstButtonReturn = 1000;
    // The answer when the alert closed without any of its buttons (it was destroyed).
    static constexpr int noButtonReturn = 0;

    QString messageText;
    QString informativeText;
    Style style = Style::warning;
    // The first button is the default one (Return); a button called "Cancel" answers Escape.
    void addButton(const QString &title) { m_buttons.append(title); }
    const QStringList &buttons() const { return m_buttons; }

    // Shows the alert window-modal on window and returns at once; completion runs on the main
    // thread with the answer after the alert has closed.
    void beginSheet(QWidget *window, std::function<void(int response)> completion) const;
    // Shows the alert application-modal and returns the answer.
    int runModal() const;

    // Test hook: the next alert is not shown; it answers with response instead (a sheet's
    // completion still runs later from the event loop, never inside beginSheet).
    static void setNextAnswer(int response);
    // The texts of the last alert that was shown or answered through the hook.
    static std::optional<Alert> lastAlert();

private:
    QMessageBox *makeBox(QWidget *parent) const;

    QStringList m_buttons;
};

} // namespace pindle::ui

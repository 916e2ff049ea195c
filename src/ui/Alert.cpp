#include "ui/Alert.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace pindle::ui {
namespace {

constexpr int informativeMinimumWidth = 300;

std::optional<int> g_nextAnswer;
std::optional<Alert> g_lastAlert;

QMessageBox::Icon iconFor(Alert::Style style)
{
    switch (style) {
    case Alert::Style::warning:
        return QMessageBox::Warning;
    case Alert::Style::informational:
        return QMessageBox::Information;
    case Alert::Style::critical:
        return QMessageBox::Critical;
    }
    return QMessageBox::NoIcon;
}

const char *const responseProperty = "pindleResponse";

int responseOf(const QMessageBox *box)
{
    const QAbstractButton *button = box->clickedButton();
    return button == nullptr ? Alert::noButtonReturn : button->property(responseProperty).toInt();
}

} // namespace

QMessageBox *Alert::makeBox(QWidget *parent) const
{
    auto *box = new QMessageBox(parent);
    box->setObjectName(QStringLiteral("alert"));
    box->setIcon(iconFor(style));
    box->setWindowTitle(QApplication::applicationDisplayName());
    box->setText(messageText);
    box->setInformativeText(informativeText);
    box->setTextFormat(Qt::PlainText);
    // The question stands out from its explanation, as alerts on other desktops do.
    if (auto *message = box->findChild<QLabel *>(QStringLiteral("qt_msgbox_label"))) {
        QFont bold = message->font();
        bold.setBold(true);
        message->setFont(bold);
    }
    // QMessageBox wraps a short informative line into a narrow column; give it room for one.
    if (auto *informative = box->findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel")))
        informative->setMinimumWidth(informativeMinimumWidth);
    for (qsizetype i = 0; i < m_buttons.size(); ++i) {
        const QString &title = m_buttons[i];
        const bool cancels = title == QStringLiteral("Cancel");
        QPushButton *button =
            box->addButton(title, cancels ? QMessageBox::RejectRole : QMessageBox::AcceptRole);
        button->setObjectName(QStringLiteral("alertButton%1").arg(i));
        button->setProperty(responseProperty, firstButtonReturn + int(i));
        if (i == 0)
            box->setDefaultButton(button);
        if (cancels)
            box->setEscapeButton(button);
    }
    return box;
}

void Alert::beginSheet(QWidget *window, std::function<void(int response)> completion) const
{
    g_lastAlert = *this;
    if (const std::optional<int> answer = std::exchange(g_nextAnswer, std::nullopt)) {
        QTimer::singleShot(0, qApp, [completion = std::move(completion), response = *answer] {
            if (completion)
                completion(response);
        });
        return;
    }
    QMessageBox *box = makeBox(window);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // finished fires once the box has closed, whichever way it closed.
    QObject::connect(box, &QDialog::finished, box, [box, completion = std::move(completion)](int) {
        if (completion)
            completion(responseOf(box));
    });
    box->open();
}

int Alert::runModal() const
{
    g_lastAlert = *this;
    if (const std::optional<int> answer = std::exchange(g_nextAnswer, std::nullopt))
        return *answer;
    QMessageBox *box = makeBox(nullptr);
    box->exec();
    const int response = responseOf(box);
    delete box;
    return response;
}

void Alert::setNextAnswer(int response)
{
    g_nextAnswer = response;
}

std::optional<Alert> Alert::lastAlert()
{
    return g_lastAlert;
}

} // namespace pindle::ui

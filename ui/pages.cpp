#include "ui/pages.h"

#include <QLabel>
#include <QListWidget>
#include <QVBoxLayout>

namespace pages {

QVBoxLayout* makeLayout(QWidget* page)
{
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(12, 12, 12, 8);
    return layout;
}

void makeHeader(QLabel* label, int points)
{
    Q_ASSERT(!label->objectName().isEmpty());
    label->setStyleSheet(QStringLiteral("QLabel#%1 { font-size:%2pt; font-weight:700; }")
                             .arg(label->objectName())
                             .arg(points));
}

QListWidget* makeList(const QString& objectName, const QString& accessibleName, QWidget* page)
{
    auto* list = new QListWidget(page);
    list->setObjectName(objectName);
    list->setAccessibleName(accessibleName);
    const auto selectCurrent = [list] {
        if (QListWidgetItem* current = list->currentItem())
            current->setSelected(true);
    };
    QObject::connect(list, &QListWidget::currentItemChanged, list, selectCurrent);
    QObject::connect(list, &QListWidget::itemSelectionChanged, list, selectCurrent);
    return list;
}

} // namespace pages

#include "ui/pages.h"

#include "ui/page_keys.h"

#include <QComboBox>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QStyledItemDelegate>
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

namespace {

// A row asks for no width, so that a long text is shortened rather than scrolled.
class RowDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        return {0, QStyledItemDelegate::sizeHint(option, index).height()};
    }
};

} // namespace

QListWidget* makeList(const QString& objectName, const QString& accessibleName, QWidget* page)
{
    auto* list = new QListWidget(page);
    list->setObjectName(objectName);
    list->setAccessibleName(accessibleName); // own words
    list->setItemDelegate(new RowDelegate(list));
    list->setUniformItemSizes(true); // thousands of rows are not measured one by one
    PageKeys::takeReturnOnce(list);
    const auto selectCurrent = [list] {
        if (QListWidgetItem* current = list->currentItem())
            current->setSelected(true);
    };
    QObject::connect(list, &QListWidget::currentItemChanged, list, selectCurrent);
    QObject::connect(list, &QListWidget::itemSelectionChanged, list, selectCurrent);
    return list;
}

// Wide enough for the names that people give.
constexpr int maxListWidth = 640;

QComboBox* makeCombo(const QString& objectName, QWidget* page)
{
    auto* combo = new QComboBox(page);
    combo->setObjectName(objectName);
    combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    combo->setMinimumContentsLength(20);
    qobject_cast<QListView*>(combo->view())->setUniformItemSizes(true);
    combo->view()->setTextElideMode(Qt::ElideMiddle);
    QWidget* frame = combo->view()->window();
    frame->setMaximumWidth(maxListWidth);                        // it would take the whole screen
    frame->setStyleSheet(QStringLiteral("background:#111624;")); // its rim is white otherwise
    return combo;
}

} // namespace pages

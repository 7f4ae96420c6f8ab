#pragma once

#include <QWidget>

// The strip across the top of the main window. Owned by the window; GUI thread.
class BannerWidget : public QWidget
{
    Q_OBJECT

public:
    explicit BannerWidget(QWidget* parent);
};

#include "ui/banner_widget.h"

BannerWidget::BannerWidget(QWidget* parent) : QWidget(parent)
{
    setFixedHeight(110);
}

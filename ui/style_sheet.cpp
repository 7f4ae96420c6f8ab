#include "ui/style_sheet.h"

QString launcherStyleSheet()
{
    return QStringLiteral(R"(
QWidget { background:#0b0d14; color:#e8ecf4; font-family:'Segoe UI'; font-size:13px; }

QListWidget { background:#111624; border:1px solid #2c3a5e; border-radius:10px; padding:4px; }
QListWidget::item { padding:8px 10px; border-radius:6px; color:#cdd6e8; }
QListWidget::item:hover { background:#1a2338; }
QListWidget::item:selected { background:#24314f; color:#7ef0a0; }

QComboBox { background:#111624; border:1px solid #2c3a5e; border-radius:8px; padding:6px 10px; min-width:160px; }
QComboBox:hover { border-color:#3a97c2; }
QComboBox:focus { border-color:#4ec9f5; }
QComboBox::drop-down { border:none; width:24px; }
QComboBox QAbstractItemView { background:#111624; border:1px solid #2c3a5e; selection-background-color:#24314f; selection-color:#7ef0a0; }

QLineEdit, QSpinBox { background:#111624; border:1px solid #2c3a5e; border-radius:8px; padding:6px 10px; color:#e8ecf4; }
QLineEdit:focus, QSpinBox:focus { border-color:#4ec9f5; }

QPushButton { background:#1a2236; border:1px solid #2c3a5e; border-radius:8px; padding:7px 16px; color:#cdd6e8; }
QPushButton:hover { background:#223052; border-color:#3a97c2; }
QPushButton:pressed { background:#24314f; }
QPushButton:disabled { color:#5d6780; }

QPushButton#playButton {
    background:qlineargradient(x1:0,y1:0,x2:0,y2:1, stop:0 #58e08d, stop:1 #2fae62);
    border:none; border-radius:10px; color:#06220f;
    font-weight:800; font-size:15px; padding:9px 34px; }
QPushButton#playButton:hover { background:qlineargradient(x1:0,y1:0,x2:0,y2:1, stop:0 #6cf0a0, stop:1 #38c06f); }
QPushButton#playButton:disabled { background:#1c2b22; color:#4e6a58; }

QWidget#sidebar { background:#0d1119; border-right:1px solid #2c3a5e; }
QToolButton#navButton {
    background:transparent; border:1px solid transparent; border-radius:8px;
    padding:9px 14px; color:#9aa4b8; font-size:13px; text-align:left; }
QToolButton#navButton:hover { background:#1a2338; color:#cdd6e8; }
QToolButton#navButton:checked { background:#1a2236; border-color:#2c3a5e; color:#7ef0a0; font-weight:600; }

QProgressBar { background:#111624; border:1px solid #2c3a5e; border-radius:8px; text-align:center; color:#9aa4b8; }
QProgressBar::chunk { background:qlineargradient(x1:0,y1:0,x2:1,y2:0, stop:0 #58e08d, stop:1 #4ec9f5); border-radius:7px; }

QTextBrowser, QPlainTextEdit { background:#0d1119; border:1px solid #2c3a5e; border-radius:8px; color:#cdd6e8; }

QLabel#status { color:#9aa4b8; }

QScrollBar:vertical { background:transparent; width:10px; margin:2px; }
QScrollBar::handle:vertical { background:#2c3a5e; border-radius:5px; min-height:24px; }
QScrollBar::handle:vertical:hover { background:#3a97c2; }
QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height:0; }
QScrollBar:horizontal { background:transparent; height:10px; margin:2px; }
QScrollBar::handle:horizontal { background:#2c3a5e; border-radius:5px; min-width:24px; }
QScrollBar::handle:horizontal:hover { background:#3a97c2; }
QScrollBar::add-line:horizontal, QScrollBar::sub-line:horizontal { width:0; }

QToolTip { background:#111624; color:#cdd6e8; border:1px solid #2c3a5e; padding:4px 8px; }
)");
}

QString windowStyleSheet()
{
    return QStringLiteral(R"(
QPushButton:focus, QToolButton#navButton:focus, QListWidget:focus, QTextBrowser:focus, QPlainTextEdit:focus { border-color:#4ec9f5; }
QPushButton#playButton:focus { border:2px solid #e8ecf4; padding:7px 32px; }

QWidget#sidebar QLabel, QWidget#qt_scrollarea_vcontainer, QWidget#qt_scrollarea_hcontainer { background:transparent; }
QPushButton#loginButton, QPushButton#registerButton { padding:7px 8px; }
QComboBox#launchSelector { min-width:178px; }

QComboBox::down-arrow, QSpinBox::down-arrow { width:10px; height:5px; background:qconicalgradient(cx:0.5,cy:1,angle:0, stop:0.12 transparent, stop:0.13 #9aa4b8, stop:0.37 #9aa4b8, stop:0.38 transparent); }
QSpinBox::up-arrow { width:10px; height:5px; background:qconicalgradient(cx:0.5,cy:0,angle:0, stop:0.62 transparent, stop:0.63 #9aa4b8, stop:0.87 #9aa4b8, stop:0.88 transparent); }
QSpinBox { padding-right:22px; }
QSpinBox::up-button, QSpinBox::down-button { subcontrol-origin:border; width:22px; background:transparent; border:none; }
QSpinBox::up-button { subcontrol-position:top right; }
QSpinBox::down-button { subcontrol-position:bottom right; }
)");
}

#pragma once

#include <QString>
#include <QStringView>

class QComboBox;
class QLabel;
class QListWidget;
class QVBoxLayout;
class QWidget;

// What the pages of the main window have in common. GUI thread.
namespace pages {

// Positions in the window's stack. The account page is 4.
enum Index { NewsList, NewsReader, ProfileList, ProfileEditor, Account, SettingsForm };

// Marks the launch selector's entries that are bare versions; a profile's entry holds its name.
inline constexpr QStringView versionPrefix = u"version:";

// A longer id or name is that of no file. Such an entry is offered, but not recorded in the
// settings: megabytes there would hold up the window at every later write of any setting.
inline constexpr qsizetype maxRecordedChars = 65'536;

// A page's own layout, with the margins that every page has.
QVBoxLayout* makeLayout(QWidget* page);

// A style sheet of the label's own: the launcher's beats setFont on every widget. Needs the label's
// object name, so that the label's tool tip does not take over the font.
void makeHeader(QLabel* label, int points);

// A list whose current item is always the selected one, so that keyboard and eye agree on which
// item a button acts upon.
QListWidget* makeList(const QString& objectName, const QString& accessibleName, QWidget* page);

// A selector of any number of entries, whose names of any length do not widen the window.
QComboBox* makeCombo(const QString& objectName, QWidget* page);

} // namespace pages

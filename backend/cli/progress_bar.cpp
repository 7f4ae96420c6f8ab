#include "backend/cli/progress_bar.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int width = 40;
constexpr int drawEveryMs = 50;

} // namespace

ProgressBar::ProgressBar(QString label)
    : m_label(std::move(label)), m_isShown(isatty(STDERR_FILENO) == 1)
{
}

ProgressBar::~ProgressBar()
{
    if (m_hasDrawn)
        std::fputs("\r\x1b[K", stderr);
}

void ProgressBar::set(qint64 done, qint64 total)
{
    const bool isLast = done >= total;
    if (!m_isShown || total <= 0 ||
        (m_lastDrawn.isValid() && m_lastDrawn.elapsed() < drawEveryMs && !isLast))
        return;
    m_lastDrawn.start();
    m_hasDrawn = true;
    const auto full = static_cast<int>(std::min(done, total) * width / total);
    const QString bar = QString(full, u'#') + QString(width - full, u'.');
    std::fputs(u"\r%1 [%2] %3 %"_s.arg(m_label, bar)
                   .arg(std::min(done, total) * 100 / total, 3)
                   .toUtf8()
                   .constData(),
               stderr);
}

#pragma once

#include <QtGlobal>

#include <clocale>

// libarchive converts names through the thread's locale; in "C" every non-ASCII name would be lost.
// Make one and enter it around the calls.
class Utf8Locale
{
public:
    Utf8Locale();
    ~Utf8Locale();
    Q_DISABLE_COPY_MOVE(Utf8Locale)

    class Scope
    {
    public:
        explicit Scope(const Utf8Locale& locale);
        ~Scope();
        Q_DISABLE_COPY_MOVE(Scope)

    private:
        locale_t m_previous = {};
    };

private:
    locale_t m_locale;
};

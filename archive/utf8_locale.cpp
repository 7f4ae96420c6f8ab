#include "archive/utf8_locale.h"

Utf8Locale::Utf8Locale() : m_locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}

Utf8Locale::~Utf8Locale()
{
    if (m_locale)
        freelocale(m_locale);
}

Utf8Locale::Scope::Scope(const Utf8Locale& locale)
{
    if (locale.m_locale)
        m_previous = uselocale(locale.m_locale);
}

Utf8Locale::Scope::~Scope()
{
    if (m_previous)
        uselocale(m_previous);
}

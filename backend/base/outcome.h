#pragma once

#include <QString>
#include <QStringList>

#include <stdexcept>
#include <utility>
#include <variant>

// Why a request or a command is turned down, in words for the person who made it. `status` is what
// the HTTP side answers with; the command line shows the texts alone.
struct Refusal
{
    int status = 400;
    QString error;
    QStringList reasons = {};
    int retryAfterSeconds = 0; // of 429 and 503, which a client is always told: 1 at least
};

// Nothing to hand back but that it worked.
struct Done
{
};

// Either what was asked for, or a refusal. Faults that nobody can act on by asking differently (a
// full disk, a lost database) are a Fault instead.
template <typename T = Done>
class Outcome
{
public:
    // Implicit on purpose: `return session;` and `return Refusal{...};` read as what they are.
    Outcome(T value) : m_value(std::move(value)) {}           // NOLINT
    Outcome(Refusal refusal) : m_value(std::move(refusal)) {} // NOLINT

    explicit operator bool() const { return m_value.index() == 0; }
    const T& operator*() const { return std::get<0>(m_value); }
    const T* operator->() const { return &std::get<0>(m_value); }
    const Refusal& refusal() const { return std::get<1>(m_value); }

private:
    std::variant<T, Refusal> m_value;
};

// The machine failed, not the person: thrown by the database and the file store, caught once where
// a request or a command ends. The text is for the operator and never sent to a client.
class Fault : public std::runtime_error
{
public:
    explicit Fault(const QString& text) : std::runtime_error(text.toStdString()) {}
    QString text() const { return QString::fromUtf8(what()); }
};

// It took too long, because somebody else holds what is needed: it may work in a moment.
class Busy : public Fault
{
public:
    using Fault::Fault;
};

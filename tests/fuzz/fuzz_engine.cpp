#include "backend/http/connection.h"
#include "tests/fuzz/engine_wire.h"
#include "tests/fuzz/engine_witness.h"
#include "tests/fuzz/fuzz.h"

namespace {

// The first two bytes say how the rest travels; digits, so that seeds can be written by hand.
constexpr qsizetype preamble = 2;

} // namespace

// Whatever the bytes on a connection, in whatever pieces: it ends, and every answer is the whole
// and only one to a request that nobody can take for another (see EngineWitness).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < preamble)
        return 0;
    const QByteArray input = fuzz::bytes(data, size);
    const bool isImpatient = (input[0] & 1) != 0;
    const bool isStopped = (input[0] & 2) != 0;
    const bool hangsUp = (input[0] & 4) != 0;
    static boost::asio::io_context context{1};
    EngineWire wire(context, input.mid(preamble), static_cast<uint8_t>(input[1]));
    if (hangsUp)
        wire.outputLimit = 37 * static_cast<uint8_t>(input[1]);
    EngineWitness witness(wire, isImpatient);
    server::Options options;
    // Time passes at once or not at all.
    options.application = isImpatient ? std::chrono::hours(0) : std::chrono::hours(1);
    options.headers = {{"X-Of-All", "yes"}};
    options.trustedProxies = {QStringLiteral("192.0.2.1")};
    server::Connection<EngineWire::End> connection(QStringLiteral("192.0.2.1"), options, witness,
                                                   wire);
    bool isOver = false;
    boost::asio::co_spawn(context, connection.serve(), [&isOver](const std::exception_ptr& fault) {
        fuzz::require(!fault);
        isOver = true;
    });
    if (isStopped)
        wire.atRead(static_cast<uint8_t>(input[1]) % 8, [&connection] { connection.finish(); });
    do
        context.restart();
    while (context.poll() > 0);
    fuzz::require(isOver);
    witness.judgeAnswers();
    return 0;
}

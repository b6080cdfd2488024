// The zn-sip-responder program under SIPp, a SIP client that no one here wrote: its built-in UAC
// scenario, and the OPTIONS and REGISTER scenarios of interop/scenarios, over UDP on loopback.
// A test passes only when SIPp exits 0 and its final statistics count every call successful.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "interop/ResponderProcess.h"

namespace
{

using namespace ZnInterop;

/// The cumulative value of the counter \p name ("Successful call") in the last statistics screen
/// that SIPp dumped; -1 when there is none.
long long cumulative(const std::string& screens, const std::string& name)
{
    long long value = -1;
    for (size_t pos = screens.find("  " + name + " "); pos != std::string::npos;
         pos = screens.find("  " + name + " ", pos + 1))
    {
        const std::string line = screens.substr(pos, screens.find('\n', pos) - pos);
        const size_t bar = line.rfind('|');
        if (bar == std::string::npos)
        {
            continue;
        }
        const std::string field = line.substr(bar + 1);
        const size_t digit = field.find_first_of("0123456789");
        if (digit != std::string::npos)
        {
            value = std::stoll(field.substr(digit));
        }
    }
    return value;
}

/// The sum of the Retrans column of the scenario screen (the messages SIPp sent again), from the
/// last screen dumped; -1 when there is none.
long long retransmissions(const std::string& screens)
{
    const size_t start = screens.rfind("Messages  Retrans");
    if (start == std::string::npos)
    {
        return -1;
    }
    long long total = 0;
    std::istringstream lines(screens.substr(screens.find('\n', start) + 1));
    std::string line;
    while (std::getline(lines, line) && line.find_first_not_of(' ') != std::string::npos)
    {
        size_t arrow = line.find("---------->");
        if (arrow == std::string::npos)
        {
            arrow = line.find("<----------");
        }
        if (arrow == std::string::npos)
        {
            continue; // a pause
        }
        // Messages, then retransmissions; a response-time mark "E-RTD1" may stand before them.
        std::istringstream fields(line.substr(arrow + 11));
        std::vector<long long> numbers;
        std::string field;
        while (fields >> field)
        {
            if (field.find_first_not_of("0123456789") == std::string::npos)
            {
                numbers.push_back(std::stoll(field));
            }
        }
        if (numbers.size() >= 2)
        {
            total += numbers[1];
        }
    }
    return total;
}

struct SippRun
{
    int exitCode = -1;
    std::string screens;
    std::string errors;
    std::string output;
};

/// Runs SIPp against \p responder with the scenario arguments \p scenario, \p calls calls at
/// \p rate per second, and waits for its end.
SippRun runSipp(const TempDir& dir, const Responder& responder,
                const std::vector<std::string>& scenario, unsigned int calls, unsigned int rate)
{
    // SIPp's own port, claimed as the responder's is: it may bind with SO_REUSEADDR too.
    const PortClaim sippPort;
    std::vector<std::string> argv{ZN_SIPP, "127.0.0.1:" + std::to_string(responder.port())};
    argv.insert(argv.end(), scenario.begin(), scenario.end());
    const std::vector<std::string> common{
        "-t", "u1", "-i", "127.0.0.1", "-p", std::to_string(sippPort.port()), "-m",
        std::to_string(calls), "-r", std::to_string(rate), "-l", "100", "-nostdin",
        // A SIPp that hangs fails instead: the global time limit ends it with an error.
        "-timeout", "30s", "-timeout_error", "-trace_screen", "-screen_file",
        dir.file("sipp.screens"), "-trace_err", "-error_file", dir.file("sipp.errors")};
    argv.insert(argv.end(), common.begin(), common.end());
    SippRun run;
    ChildProcess sipp;
    if (!sipp.start(argv, dir.path(), dir.file("sipp.out"), dir.file("sipp.err")))
    {
        return run;
    }
    if (sipp.waitFor(milliseconds(45000)))
    {
        run.exitCode = sipp.exitCode();
    }
    run.screens = readFile(dir.file("sipp.screens"));
    run.errors = readFile(dir.file("sipp.errors")) + sipp.errors();
    run.output = sipp.output();
    return run;
}

/// Runs SIPp, and checks that every call succeeded and the responder ends with 0.
void expectEveryCallSuccessful(const std::vector<std::string>& scenario, unsigned int calls,
                               unsigned int rate)
{
    TempDir dir;
    Responder responder(dir);
    ASSERT_EQ("", responder.start());

    const SippRun run = runSipp(dir, responder, scenario, calls, rate);
    EXPECT_EQ(0, run.exitCode) << run.screens << run.errors << run.output;
    EXPECT_EQ(static_cast<long long>(calls), cumulative(run.screens, "Successful call"))
        << run.screens;
    EXPECT_EQ(0, cumulative(run.screens, "Failed call")) << run.screens << run.errors;
    const long long retrans = retransmissions(run.screens);
    EXPECT_GE(retrans, 0) << run.screens;
    std::printf(
        "SIPp %s: %lld calls successful, %lld failed, %lld retransmissions, at %u calls/s\n",
        scenario[1].c_str(), cumulative(run.screens, "Successful call"),
        cumulative(run.screens, "Failed call"), retrans, rate);

    EXPECT_EQ(0, responder.stop()) << responder.process().howItEnded();
    const std::string errors = responder.process().errors();
    EXPECT_EQ(std::string::npos, errors.find("Sanitizer")) << errors;
    EXPECT_EQ(std::string::npos, errors.find("runtime error")) << errors;
    EXPECT_EQ(std::string::npos, errors.find("ERROR")) << errors;
}

TEST(SipResponderSippTest, BuiltInUacScenarioCompletesEveryCall)
{
    // INVITE (200 with a To tag), ACK, BYE (200) per call.
    expectEveryCallSuccessful({"-sn", "uac"}, 300, 50);
}

TEST(SipResponderSippTest, OptionsScenarioCompletesEveryCall)
{
    expectEveryCallSuccessful({"-sf", std::string(ZN_SCENARIOS_DIR) + "/options.xml"}, 200, 50);
}

TEST(SipResponderSippTest, RegisterScenarioCompletesEveryCall)
{
    expectEveryCallSuccessful({"-sf", std::string(ZN_SCENARIOS_DIR) + "/register.xml"}, 200, 50);
}

} // namespace

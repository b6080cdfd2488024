// The zn-sip-responder program from the outside: started on a free loopback port, spoken to
// through a plain UDP socket, stopped by a signal.
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "interop/ResponderProcess.h"

namespace
{

using namespace ZnInterop;

const milliseconds kAnswerLimit(10000);

/// No sanitizer, no assertion, no error line on the responder's stderr.
void expectCleanErrors(const std::string& errors)
{
    EXPECT_EQ(std::string::npos, errors.find("Sanitizer")) << errors;
    EXPECT_EQ(std::string::npos, errors.find("runtime error")) << errors;
    EXPECT_EQ(std::string::npos, errors.find("ERROR")) << errors;
    EXPECT_EQ(std::string::npos, errors.find("FATAL")) << errors;
}

/// The value of header \p name in \p response (the first one), empty when missing.
std::string header(const std::string& response, const std::string& name)
{
    const std::string label = "\r\n" + name + ": ";
    const size_t start = response.find(label);
    if (start == std::string::npos)
    {
        return "";
    }
    const size_t end = response.find("\r\n", start + label.size());
    return response.substr(start + label.size(), end - start - label.size());
}

std::string statusLine(const std::string& response)
{
    return response.substr(0, response.find("\r\n"));
}

/// The last statistics line of the program's output.
std::string lastStatisticsLine(const std::string& output)
{
    const size_t start = output.rfind("received=");
    if (start == std::string::npos)
    {
        return "";
    }
    return output.substr(start, output.find('\n', start) - start);
}

/// Waits at most \p limit until \p pred holds, polling every 20 ms.
template <class Pred>
bool waitUntil(Pred pred, milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    while (!pred())
    {
        if (Clock::now() >= deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(20));
    }
    return true;
}

TEST(SipResponderProgramTest, AnswersOptionsFromTheListeningPortWithTheRequestHeaders)
{
    TempDir dir;
    Responder responder(dir);
    ASSERT_EQ("", responder.start());

    UdpClient client;
    const std::string request = optionsRequest(client.port(), responder.port(), "opt-1");
    ASSERT_TRUE(client.send(request, responder.port()));
    std::string response;
    unsigned int from = 0;
    ASSERT_TRUE(client.receive(response, kAnswerLimit, &from));

    EXPECT_EQ(responder.port(), from);
    EXPECT_EQ("SIP/2.0 200 OK", statusLine(response));
    EXPECT_EQ("SIP/2.0/UDP 127.0.0.1:" + std::to_string(client.port()) + ";branch=z9hG4bK-opt-1",
              header(response, "Via"));
    EXPECT_EQ("<sip:test@127.0.0.1:" + std::to_string(client.port()) + ">;tag=t-opt-1",
              header(response, "From"));
    EXPECT_TRUE(std::regex_match(header(response, "To"),
                                 std::regex("<sip:responder@127\\.0\\.0\\.1>;tag=zn[0-9a-f]{16}")))
        << header(response, "To");
    EXPECT_EQ("opt-1", header(response, "Call-ID"));
    EXPECT_EQ("1 OPTIONS", header(response, "CSeq"));
    EXPECT_EQ("0", header(response, "Content-Length"));
    EXPECT_EQ(response.size() - 4, response.find("\r\n\r\n"));

    EXPECT_EQ(0, responder.stop()) << responder.process().howItEnded();
    expectCleanErrors(responder.process().errors());
    EXPECT_NE(std::string::npos, responder.process().output().find("zn-sip-responder: stopped"));
}

TEST(SipResponderProgramTest, MalformedDatagramsDoNotStopTheNextGoodRequest)
{
    TempDir dir;
    Responder responder(dir);
    ASSERT_EQ("", responder.start());
    const unsigned int port = responder.port();
    UdpClient client;
    const unsigned int me = client.port();

    std::mt19937 random(4711);
    std::string junk(1400, '\0');
    for (char& c : junk)
    {
        c = static_cast<char>(random() % 256);
    }
    const std::string good = optionsRequest(me, port, "cut");
    const size_t afterVia = good.find("\r\n", good.find("Via:")) + 2;
    std::string noColon = optionsRequest(me, port, "no-colon", "just some words\r\n");
    std::string junkHeader =
        optionsRequest(me, port, "junk-header", "X-Junk: " + std::string(60000, '\0') + "\r\n");
    std::string mismatch = optionsRequest(me, port, "mismatch");
    mismatch.replace(mismatch.find("1 OPTIONS"), 9, "1 INVITE");
    std::string noEnd = optionsRequest(me, port, "no-end");
    noEnd.erase(noEnd.size() - 2);
    // The largest datagram IPv4 carries: 65507 bytes.
    std::string biggest = optionsRequest(me, port, "biggest", "X-Pad: \r\n");
    biggest.insert(biggest.find("X-Pad: ") + 7, 65507 - biggest.size(), 'p');

    // Dropped, and counted as malformed.
    const std::vector<std::string> dropped{"",
                                           "hello, this is not SIP",
                                           junk,
                                           std::string(100, '\xff'),
                                           good.substr(0, 10),
                                           good.substr(0, afterVia),
                                           std::string(65507, 'A')};
    // Answered 400, and counted as malformed.
    const std::vector<std::string> rejected{noColon, junkHeader, mismatch, noEnd};
    // Neither answered nor malformed.
    const std::vector<std::string> ignored{"\r\n\r\n", "SIP/2.0 200 OK\r\nCall-ID: x\r\n\r\n"};
    // Well-formed, however large.
    const std::vector<std::string> answered{
        optionsRequest(me, port, "huge", "X-Big: " + std::string(60000, 'x') + "\r\n"), biggest};
    ASSERT_EQ(65507u, biggest.size());

    // One datagram at a time, each followed by an OPTIONS whose answer shows that the responder
    // has read it: a burst of datagrams this large could overflow the socket's receive buffer.
    const std::map<std::string, std::string> answerOf{
        {noColon, "no-colon"}, {junkHeader, "junk-header"}, {mismatch, "mismatch"},
        {noEnd, "no-end"},     {answered[0], "huge"},       {biggest, "biggest"}};
    std::map<std::string, std::string> responses;
    std::vector<std::string> others;
    int probes = 0;
    for (const std::vector<std::string>* group : {&dropped, &rejected, &ignored, &answered})
    {
        for (const std::string& datagram : *group)
        {
            const std::string probe = "probe-" + std::to_string(++probes);
            ASSERT_TRUE(client.send(datagram, port)) << datagram.size();
            ASSERT_TRUE(client.send(optionsRequest(me, port, probe), port));
            std::set<std::string> expected{probe};
            const auto answer = answerOf.find(datagram);
            if (answer != answerOf.end())
            {
                expected.insert(answer->second);
            }
            const std::map<std::string, std::string> got =
                client.collect(expected, kAnswerLimit, others);
            ASSERT_EQ(expected.size(), got.size()) << "after a datagram of " << datagram.size()
                                                   << " bytes: " << datagram.substr(0, 60);
            responses.insert(got.begin(), got.end());
        }
    }
    EXPECT_TRUE(others.empty()) << others.size() << " unexpected responses, the first:\n"
                                << (others.empty() ? "" : others[0]);
    for (const char* callId : {"no-colon", "junk-header", "mismatch", "no-end"})
    {
        EXPECT_EQ("SIP/2.0 400 Bad Request", statusLine(responses.at(callId))) << callId;
        EXPECT_NE("", header(responses.at(callId), "Warning")) << callId;
    }
    for (const char* callId : {"huge", "biggest"})
    {
        EXPECT_EQ("SIP/2.0 200 OK", statusLine(responses.at(callId))) << callId;
    }

    // And the next good request is answered as ever.
    ASSERT_TRUE(client.send(optionsRequest(me, port, "after"), port));
    std::string response;
    ASSERT_TRUE(client.receiveFor("after", response, kAnswerLimit));
    EXPECT_EQ("SIP/2.0 200 OK", statusLine(response));

    EXPECT_EQ(0, responder.stop()) << responder.process().howItEnded();
    expectCleanErrors(responder.process().errors());
    const std::string line = lastStatisticsLine(responder.process().output());
    EXPECT_EQ(static_cast<long long>(dropped.size() + rejected.size()),
              lastNumberAfter(line, "malformed="))
        << line;
    EXPECT_GE(lastNumberAfter(line, "received="),
              static_cast<long long>(dropped.size() + rejected.size() + ignored.size() +
                                     answered.size() + probes + 1))
        << line;
}

TEST(SipResponderProgramTest, WritesALineOfStatisticsEverySecond)
{
    TempDir dir;
    Responder responder(dir);
    ASSERT_EQ("", responder.start());
    const std::regex format("received=[0-9]+ answered=[0-9]+ malformed=[0-9]+ rate=[0-9]+/s");
    auto statisticsLines = [&responder, &format]()
    {
        const std::string output = responder.process().output();
        return std::distance(std::sregex_iterator(output.begin(), output.end(), format),
                             std::sregex_iterator());
    };
    EXPECT_TRUE(waitUntil([&]() { return statisticsLines() >= 2; }, milliseconds(10000)))
        << responder.process().output();
    EXPECT_EQ(0, responder.stop()) << responder.process().howItEnded();
    expectCleanErrors(responder.process().errors());
}

TEST(SipResponderProgramTest, SigintEndsItWithExitCodeZero)
{
    TempDir dir;
    Responder responder(dir);
    ASSERT_EQ("", responder.start());
    EXPECT_EQ(0, responder.stop(SIGINT)) << responder.process().howItEnded();
    expectCleanErrors(responder.process().errors());
}

TEST(SipResponderProgramTest, ConfigurationFileSetsResponseCodeAndLogging)
{
    TempDir dir;
    ::mkdir(dir.file("conf").c_str(), 0755);
    {
        std::ofstream config(dir.file("conf/responder.properties"));
        config << "# the responder's settings\n"
                  "responder.address=127.0.0.1\n"
                  "responder.port=1\n"
                  "responder.responseCode=486\n"
                  "responder.logConfig=logging.properties\n";
        std::ofstream logging(dir.file("conf/logging.properties"));
        logging << "log4cplus.rootLogger=WARN, err\n"
                   "log4cplus.logger.corvane.zn.example.SipResponder=INFO\n"
                   "log4cplus.appender.err=log4cplus::ConsoleAppender\n"
                   "log4cplus.appender.err.logToStdErr=true\n"
                   "log4cplus.appender.err.layout=log4cplus::PatternLayout\n"
                   "log4cplus.appender.err.layout.ConversionPattern=%c - %m%n\n";
    }
    Responder responder(dir);
    // The port of the command line wins over the file's.
    ASSERT_EQ("", responder.start({"--config", dir.file("conf/responder.properties")}));
    UdpClient client;
    ASSERT_TRUE(
        client.send(optionsRequest(client.port(), responder.port(), "busy"), responder.port()));
    std::string response;
    ASSERT_TRUE(client.receiveFor("busy", response, kAnswerLimit));
    EXPECT_EQ("SIP/2.0 486 Busy Here", statusLine(response));
    EXPECT_NE(std::string::npos, responder.process().output().find("answering 486 Busy Here"));
    EXPECT_EQ(0, responder.stop()) << responder.process().howItEnded();
    // The log configuration named relative to the configuration file was read.
    const std::string errors = responder.process().errors();
    EXPECT_NE(std::string::npos,
              errors.find("corvane.zn.example.SipResponder - listening on udp 127.0.0.1:" +
                          std::to_string(responder.port())))
        << errors;
    EXPECT_NE(std::string::npos, errors.find("corvane.zn.example.SipResponder - received="))
        << errors;
    expectCleanErrors(errors);
}

TEST(SipResponderProgramTest, SampleConfigurationOfTheExamplesRuns)
{
    TempDir dir;
    Responder responder(dir);
    ASSERT_EQ("", responder.start({"--config", ZN_EXAMPLE_CONFIG}));
    EXPECT_NE(std::string::npos, responder.process().output().find("answering 200 OK"));
    EXPECT_EQ(0, responder.stop()) << responder.process().howItEnded();
    expectCleanErrors(responder.process().errors());
}

TEST(SipResponderProgramTest, BadConfigurationValuesExitWithUsage)
{
    TempDir dir;
    for (const char* line : {"responder.responseCode=180", "responder.responseCode=700",
                             "responder.responseCode=ok", "responder.port=70000"})
    {
        {
            std::ofstream config(dir.file("bad.properties"));
            config << line << "\n";
        }
        std::vector<std::string> argv{ZN_SIP_RESPONDER, "--config", dir.file("bad.properties")};
        ChildProcess child;
        ASSERT_TRUE(child.start(argv, dir.path(), dir.file("bad.out"), dir.file("bad.err")));
        ASSERT_TRUE(child.waitFor(milliseconds(20000)));
        EXPECT_EQ(2, child.exitCode()) << line;
        EXPECT_NE(std::string::npos, child.errors().find("Usage: zn-sip-responder")) << line;
    }
}

/// Runs the program with \p args and waits for its end.
int runToEnd(const TempDir& dir, const std::vector<std::string>& args, std::string& out,
             std::string& err)
{
    std::vector<std::string> argv{ZN_SIP_RESPONDER};
    argv.insert(argv.end(), args.begin(), args.end());
    ChildProcess child;
    if (!child.start(argv, dir.path(), dir.file("run.out"), dir.file("run.err")) ||
        !child.waitFor(milliseconds(20000)))
    {
        return -1;
    }
    out = child.output();
    err = child.errors();
    return child.exitCode();
}

TEST(SipResponderProgramTest, HelpNamesTheProgramAndItsOptions)
{
    TempDir dir;
    std::string out;
    std::string err;
    EXPECT_EQ(0, runToEnd(dir, {"--help"}, out, err));
    EXPECT_EQ(0u, out.find("Usage: zn-sip-responder [--address A] [--port P] [--config FILE] "
                           "[--help]\n"))
        << out;
    EXPECT_EQ("", err);
}

TEST(SipResponderProgramTest, BadCommandLinesExitWithUsageOnStderr)
{
    TempDir dir;
    const std::vector<std::vector<std::string>> bad{
        {"--bogus"},       {"--port"}, {"--port", "65536"},
        {"--port", "50x"}, {"extra"},  {"--config", dir.file("missing.properties")}};
    for (const std::vector<std::string>& args : bad)
    {
        std::string out;
        std::string err;
        EXPECT_EQ(2, runToEnd(dir, args, out, err)) << args[0];
        EXPECT_NE(std::string::npos, err.find("Usage: zn-sip-responder")) << err;
        EXPECT_EQ("", out) << args[0];
    }
}

TEST(SipResponderProgramTest, PortInUseEndsItWithExitCodeOne)
{
    TempDir dir;
    UdpClient holder; // bound without SO_REUSEADDR: nobody else gets the port
    std::string out;
    std::string err;
    EXPECT_EQ(1, runToEnd(dir, {"--port", std::to_string(holder.port())}, out, err));
    EXPECT_NE(std::string::npos, err.find("zn-sip-responder: cannot listen on 127.0.0.1:" +
                                          std::to_string(holder.port())))
        << err;
    EXPECT_EQ(std::string::npos, err.find("Sanitizer")) << err;
}

} // namespace

#include "SipResponseBuilder.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "SipStatistics.h"

namespace
{

using ZnExample::SipReply;
using ZnExample::SipResponseBuilder;
using ZnExample::SipStatistics;

const char* const kSource = "127.0.0.1";
const unsigned int kSourcePort = 5062;

SipResponseBuilder::Options options(unsigned int code = 200, uint64_t seed = 7)
{
    SipResponseBuilder::Options o;
    o.responseCode = code;
    o.contactHost = "127.0.0.1";
    o.contactPort = 5099;
    o.tagSeed = seed;
    return o;
}

SipReply buildFrom(const SipResponseBuilder& builder, const std::string& text,
                   const char* source = kSource, unsigned int port = kSourcePort)
{
    ZnHandle<ZnByteArray> bytes =
        ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data());
    return builder.build(*bytes, 0, static_cast<unsigned int>(text.size()), source, port);
}

SipReply buildFrom(const std::string& text)
{
    SipResponseBuilder builder(options());
    return buildFrom(builder, text);
}

/// The header lines of a response, without the status line and the empty line.
std::vector<std::string> lines(const std::string& response)
{
    std::vector<std::string> result;
    size_t pos = 0;
    while (pos < response.size())
    {
        const size_t end = response.find("\r\n", pos);
        if (end == std::string::npos)
        {
            result.push_back(response.substr(pos));
            break;
        }
        result.push_back(response.substr(pos, end - pos));
        pos = end + 2;
    }
    return result;
}

/// The values of the header \p name in \p response, in order.
std::vector<std::string> values(const std::string& response, const std::string& name)
{
    std::vector<std::string> found;
    for (const std::string& line : lines(response))
    {
        if (line.compare(0, name.size() + 2, name + ": ") == 0)
        {
            found.push_back(line.substr(name.size() + 2));
        }
    }
    return found;
}

std::string statusLine(const std::string& response)
{
    return response.substr(0, response.find("\r\n"));
}

const char* const kInvite = "INVITE sip:service@127.0.0.1:5060 SIP/2.0\r\n"
                            "Via: SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-1-0\r\n"
                            "From: sipp <sip:sipp@127.0.0.1:5062>;tag=42SIPpTag001\r\n"
                            "To: service <sip:service@127.0.0.1:5060>\r\n"
                            "Call-ID: 1-42@127.0.0.1\r\n"
                            "CSeq: 1 INVITE\r\n"
                            "Contact: sip:sipp@127.0.0.1:5062\r\n"
                            "Max-Forwards: 70\r\n"
                            "Content-Type: application/sdp\r\n"
                            "Content-Length: 9\r\n"
                            "\r\n"
                            "v=0\r\ns=-\r\n";

/// A request with the given method and extra header lines (each ending in CRLF).
std::string request(const std::string& method, const std::string& extra = "",
                    const std::string& cseqMethod = "")
{
    return method + " sip:service@127.0.0.1 SIP/2.0\r\n" +
           "Via: SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-7\r\n" +
           "From: <sip:a@127.0.0.1>;tag=1\r\n" + "To: <sip:b@127.0.0.1>\r\n" +
           "Call-ID: call-7\r\n" + "CSeq: 3 " + (cseqMethod.empty() ? method : cseqMethod) +
           "\r\n" + extra + "Content-Length: 0\r\n\r\n";
}

TEST(SipResponseBuilderTest, InviteIsAnsweredOkWithTheRequestHeadersAndAToTag)
{
    SipResponseBuilder builder(options());
    const SipReply reply = buildFrom(builder, kInvite);

    EXPECT_EQ(SipReply::ANSWERED, reply.verdict);
    EXPECT_EQ(200u, reply.statusCode);
    EXPECT_EQ("INVITE", reply.method);
    EXPECT_TRUE(reply.problem.empty());
    EXPECT_FALSE(reply.isMalformed());
    EXPECT_EQ(5062u, reply.destinationPort);
    EXPECT_EQ("SIP/2.0 200 OK\r\n"
              "Via: SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-1-0\r\n"
              "From: sipp <sip:sipp@127.0.0.1:5062>;tag=42SIPpTag001\r\n"
              "To: service <sip:service@127.0.0.1:5060>;tag=" +
                  builder.tagFor("1-42@127.0.0.1") +
                  "\r\n"
                  "Call-ID: 1-42@127.0.0.1\r\n"
                  "CSeq: 1 INVITE\r\n"
                  "Contact: <sip:127.0.0.1:5099>\r\n"
                  "Content-Length: 0\r\n"
                  "\r\n",
              reply.response);
}

TEST(SipResponseBuilderTest, ToTagIsStablePerCallIdAndSeed)
{
    SipResponseBuilder builder(options(200, 7));
    SipResponseBuilder other(options(200, 8));
    EXPECT_EQ(builder.tagFor("a"), builder.tagFor("a"));
    EXPECT_NE(builder.tagFor("a"), builder.tagFor("b"));
    EXPECT_NE(builder.tagFor("a"), other.tagFor("a"));
    EXPECT_EQ(18u, builder.tagFor("a").size());
    EXPECT_EQ(0u, builder.tagFor("a").find("zn"));
}

TEST(SipResponseBuilderTest, ToWithATagIsCopiedUnchanged)
{
    const std::string bye = "BYE sip:service@127.0.0.1 SIP/2.0\r\n"
                            "Via: SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-2\r\n"
                            "From: <sip:a@127.0.0.1>;tag=1\r\n"
                            "To: \"Bob; <x>\" <sip:b@127.0.0.1;lr>;tag=zn0123\r\n"
                            "Call-ID: c\r\n"
                            "CSeq: 2 BYE\r\n"
                            "Content-Length: 0\r\n\r\n";
    const SipReply reply = buildFrom(bye);
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ(std::vector<std::string>{"\"Bob; <x>\" <sip:b@127.0.0.1;lr>;tag=zn0123"},
              values(reply.response, "To"));
    EXPECT_TRUE(values(reply.response, "Contact").empty());
}

TEST(SipResponseBuilderTest, EveryViaValueIsCopiedInOrderOnALineOfItsOwn)
{
    const std::string text = "OPTIONS sip:x@127.0.0.1 SIP/2.0\r\n"
                             "Via: SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-top\r\n"
                             "v: SIP/2.0/UDP proxy1.example.com;branch=z9hG4bK-p1, "
                             "SIP/2.0/TCP proxy2.example.com:5070;branch=z9hG4bK-p2;x=\"a,b\"\r\n"
                             "Max-Forwards: 70\r\n"
                             "VIA: SIP/2.0/UDP [::1]:5080;branch=z9hG4bK-last\r\n"
                             "From: <sip:a@127.0.0.1>;tag=1\r\n"
                             "To: <sip:b@127.0.0.1>\r\n"
                             "Call-ID: c\r\n"
                             "CSeq: 1 OPTIONS\r\n\r\n";
    const SipReply reply = buildFrom(text);
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ(
        (std::vector<std::string>{"SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-top",
                                  "SIP/2.0/UDP proxy1.example.com;branch=z9hG4bK-p1",
                                  "SIP/2.0/TCP proxy2.example.com:5070;branch=z9hG4bK-p2;x=\"a,b\"",
                                  "SIP/2.0/UDP [::1]:5080;branch=z9hG4bK-last"}),
        values(reply.response, "Via"));
}

TEST(SipResponseBuilderTest, HeaderNamesAreCaseInsensitiveAndCompactFormsAccepted)
{
    const std::string text = "REGISTER sip:127.0.0.1 SIP/2.0\r\n"
                             "v: SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-c\r\n"
                             "f: <sip:a@127.0.0.1>;tag=9\r\n"
                             "T : <sip:a@127.0.0.1>\r\n"
                             "i:compact-call\r\n"
                             "cseq: 4 REGISTER\r\n"
                             "m: <sip:a@127.0.0.1:5062>;expires=60\r\n"
                             "l: 0\r\n\r\n";
    const SipReply reply = buildFrom(text);
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ(std::vector<std::string>{"<sip:a@127.0.0.1>;tag=9"}, values(reply.response, "From"));
    EXPECT_EQ(std::vector<std::string>{"compact-call"}, values(reply.response, "Call-ID"));
    EXPECT_EQ(std::vector<std::string>{"4 REGISTER"}, values(reply.response, "CSeq"));
    // REGISTER's 2xx echoes the bindings asked for.
    EXPECT_EQ(std::vector<std::string>{"<sip:a@127.0.0.1:5062>;expires=60"},
              values(reply.response, "Contact"));
}

TEST(SipResponseBuilderTest, OptionsOkTellsTheMethodsInAllow)
{
    const SipReply reply = buildFrom(request("OPTIONS"));
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ(std::vector<std::string>{"INVITE, ACK, CANCEL, BYE, OPTIONS, REGISTER"},
              values(reply.response, "Allow"));
    EXPECT_EQ(std::vector<std::string>{"0"}, values(reply.response, "Content-Length"));
}

TEST(SipResponseBuilderTest, InviteOkCopiesRecordRoute)
{
    const SipReply reply =
        buildFrom(request("INVITE", "Record-Route: <sip:p1.example.com;lr>\r\n"
                                    "Record-Route: <sip:p2.example.com;lr>\r\n"));
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ((std::vector<std::string>{"<sip:p1.example.com;lr>", "<sip:p2.example.com;lr>"}),
              values(reply.response, "Record-Route"));
}

TEST(SipResponseBuilderTest, FoldedHeaderLinesAreJoined)
{
    const std::string text = "OPTIONS sip:x@127.0.0.1 SIP/2.0\r\n"
                             "Via: SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-f\r\n"
                             "From: <sip:a@127.0.0.1>;tag=1\r\n"
                             "To:\r\n <sip:b@127.0.0.1>\r\n"
                             "Call-ID: c\r\n"
                             "CSeq: 1\r\n\tOPTIONS\r\n\r\n";
    const SipReply reply = buildFrom(text);
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ(1u, values(reply.response, "To").size());
    EXPECT_EQ(0u, values(reply.response, "To")[0].find("<sip:b@127.0.0.1>;tag=zn"));
    EXPECT_EQ(std::vector<std::string>{"1 OPTIONS"}, values(reply.response, "CSeq"));
}

TEST(SipResponseBuilderTest, ConfiguredCodeAndReasonPhrase)
{
    SipResponseBuilder builder(options(486));
    const SipReply reply = buildFrom(builder, request("INVITE"));
    EXPECT_EQ(SipReply::ANSWERED, reply.verdict);
    EXPECT_EQ("SIP/2.0 486 Busy Here", statusLine(reply.response));
    EXPECT_TRUE(values(reply.response, "Contact").empty());
    EXPECT_EQ(486u, builder.getResponseCode());
}

TEST(SipResponseBuilderTest, OnlyFinalCodesCanBeConfigured)
{
    EXPECT_THROW(SipResponseBuilder(options(100)), std::invalid_argument);
    EXPECT_THROW(SipResponseBuilder(options(199)), std::invalid_argument);
    EXPECT_THROW(SipResponseBuilder(options(700)), std::invalid_argument);
    EXPECT_NO_THROW(SipResponseBuilder(options(699)));
}

TEST(SipResponseBuilderTest, ReasonPhrases)
{
    EXPECT_STREQ("OK", SipResponseBuilder::sReasonPhrase(200));
    EXPECT_STREQ("Not Found", SipResponseBuilder::sReasonPhrase(404));
    EXPECT_STREQ("Call/Transaction Does Not Exist", SipResponseBuilder::sReasonPhrase(481));
    EXPECT_STREQ("Service Unavailable", SipResponseBuilder::sReasonPhrase(503));
    EXPECT_STREQ("Decline", SipResponseBuilder::sReasonPhrase(603));
    EXPECT_STREQ("Successful", SipResponseBuilder::sReasonPhrase(299));
    EXPECT_STREQ("Redirection", SipResponseBuilder::sReasonPhrase(399));
    EXPECT_STREQ("Client Error", SipResponseBuilder::sReasonPhrase(499));
    EXPECT_STREQ("Server Error", SipResponseBuilder::sReasonPhrase(599));
    EXPECT_STREQ("Global Failure", SipResponseBuilder::sReasonPhrase(699));
}

TEST(SipResponseBuilderTest, AckIsNotAnswered)
{
    const SipReply reply = buildFrom(request("ACK"));
    EXPECT_EQ(SipReply::IGNORED, reply.verdict);
    EXPECT_FALSE(reply.hasResponse());
    EXPECT_FALSE(reply.isMalformed());
    EXPECT_EQ("ACK", reply.method);
}

TEST(SipResponseBuilderTest, MalformedAckIsDroppedNotAnswered)
{
    const SipReply reply = buildFrom(request("ACK", "", "INVITE"));
    EXPECT_EQ(SipReply::DROPPED, reply.verdict);
    EXPECT_FALSE(reply.hasResponse());
    EXPECT_TRUE(reply.isMalformed());
}

TEST(SipResponseBuilderTest, ResponsesAndKeepAlivesAreIgnored)
{
    const SipReply response = buildFrom("SIP/2.0 200 OK\r\nVia: SIP/2.0/UDP h\r\n\r\n");
    EXPECT_EQ(SipReply::IGNORED, response.verdict);
    EXPECT_FALSE(response.hasResponse());
    const SipReply keepAlive = buildFrom("\r\n\r\n");
    EXPECT_EQ(SipReply::IGNORED, keepAlive.verdict);
    EXPECT_FALSE(keepAlive.isMalformed());
}

TEST(SipResponseBuilderTest, LeadingEmptyLinesBeforeTheRequestLineAreSkipped)
{
    const SipReply reply = buildFrom("\r\n\r\n" + request("OPTIONS"));
    EXPECT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
}

TEST(SipResponseBuilderTest, RequestsMissingAMandatoryHeaderAreDropped)
{
    const std::string full = request("OPTIONS");
    const struct
    {
        const char* header;
        const char* problem;
    } cases[] = {{"Via: ", "no Via"},
                 {"From: ", "no From"},
                 {"To: ", "no To"},
                 {"Call-ID: ", "no Call-ID"},
                 {"CSeq: ", "no CSeq"}};
    for (const auto& c : cases)
    {
        std::string text = full;
        const size_t start = text.find(c.header);
        ASSERT_NE(std::string::npos, start);
        text.erase(start, text.find("\r\n", start) + 2 - start);
        const SipReply reply = buildFrom(text);
        EXPECT_EQ(SipReply::DROPPED, reply.verdict) << c.header;
        EXPECT_EQ(c.problem, reply.problem) << c.header;
        EXPECT_FALSE(reply.hasResponse()) << c.header;
        EXPECT_TRUE(reply.isMalformed()) << c.header;
    }
}

TEST(SipResponseBuilderTest, BadCSeqIsDropped)
{
    for (const char* cseq :
         {"CSeq: abc OPTIONS", "CSeq: 1", "CSeq: 99999999999 OPTIONS", "CSeq: 2147483648 OPTIONS",
          "CSeq: 1 OPTIONS extra", "CSeq: -1 OPTIONS"})
    {
        std::string text = request("OPTIONS");
        const size_t start = text.find("CSeq: ");
        text.replace(start, text.find("\r\n", start) - start, cseq);
        const SipReply reply = buildFrom(text);
        EXPECT_EQ(SipReply::DROPPED, reply.verdict) << cseq;
        EXPECT_EQ("bad CSeq", reply.problem) << cseq;
    }
}

TEST(SipResponseBuilderTest, BadViaIsDropped)
{
    for (const char* via :
         {"Via: SIP/2.0/UDP", "Via: HTTP/1.1/UDP 127.0.0.1",
          "Via: SIP/2.0/UDP 127.0.0.1:99999;branch=x", "Via: SIP/2.0/UDP 127.0.0.1;branch=a b",
          "Via: SIP/2.0/UDP host;;x", "Via: SIP/2.0/UDP ho st", "Via: SIP/2.0/UDP 127.0.0.1:5060;",
          "Via: SIP/2.0/UDP 127.0.0.1, junk"})
    {
        std::string text = request("OPTIONS");
        const size_t start = text.find("Via: ");
        text.replace(start, text.find("\r\n", start) - start, via);
        const SipReply reply = buildFrom(text);
        EXPECT_EQ(SipReply::DROPPED, reply.verdict) << via;
        EXPECT_FALSE(reply.hasResponse()) << via;
    }
}

TEST(SipResponseBuilderTest, CSeqMethodMismatchIsAnswered400WithAWarning)
{
    const SipReply reply = buildFrom(request("OPTIONS", "", "INVITE"));
    EXPECT_EQ(SipReply::REJECTED, reply.verdict);
    EXPECT_TRUE(reply.isMalformed());
    EXPECT_EQ(400u, reply.statusCode);
    EXPECT_EQ("SIP/2.0 400 Bad Request", statusLine(reply.response));
    EXPECT_EQ("CSeq method does not match the request line", reply.problem);
    EXPECT_EQ(
        std::vector<std::string>{
            "399 zn-sip-responder \"CSeq method does not match the request line\""},
        values(reply.response, "Warning"));
    // A 400 carries the To tag too, and no Allow.
    EXPECT_EQ(0u, values(reply.response, "To")[0].find("<sip:b@127.0.0.1>;tag=zn"));
    EXPECT_TRUE(values(reply.response, "Allow").empty());
}

TEST(SipResponseBuilderTest, BadOrTooLargeContentLengthIsAnswered400)
{
    std::string text = request("OPTIONS");
    text.replace(text.find("Content-Length: 0"), 17, "Content-Length: x1");
    EXPECT_EQ("bad Content-Length", buildFrom(text).problem);
    EXPECT_EQ(400u, buildFrom(text).statusCode);

    text = request("OPTIONS");
    text.replace(text.find("Content-Length: 0"), 17, "Content-Length: 10");
    text += "12345"; // five of the ten bytes
    const SipReply reply = buildFrom(text);
    EXPECT_EQ(SipReply::REJECTED, reply.verdict);
    EXPECT_EQ("Content-Length larger than the body", reply.problem);

    // Bytes past the Content-Length are simply not part of the message.
    text = request("OPTIONS") + "trailing bytes";
    EXPECT_EQ(SipReply::ANSWERED, buildFrom(text).verdict);
}

TEST(SipResponseBuilderTest, DuplicateSingleHeadersAreAnswered400)
{
    const SipReply reply = buildFrom(request("OPTIONS", "i: second-call-id\r\n"));
    EXPECT_EQ(SipReply::REJECTED, reply.verdict);
    EXPECT_EQ("more than one Call-ID", reply.problem);
    EXPECT_EQ(std::vector<std::string>{"call-7"}, values(reply.response, "Call-ID"));
}

TEST(SipResponseBuilderTest, HeadWithoutEmptyLineIsAnswered400)
{
    std::string text = request("OPTIONS");
    text.erase(text.size() - 2); // the empty line
    const SipReply reply = buildFrom(text);
    EXPECT_EQ(SipReply::REJECTED, reply.verdict);
    EXPECT_EQ("no empty line after the head", reply.problem);
}

TEST(SipResponseBuilderTest, HeaderLineWithoutColonOrWithControlCharactersIsAnswered400)
{
    EXPECT_EQ("header line without colon",
              buildFrom(request("OPTIONS", "just some words\r\n")).problem);
    EXPECT_EQ("control character in a header line",
              buildFrom(request("OPTIONS", std::string("Subject: a\0b\r\n", 14))).problem);
    EXPECT_EQ("bad header name", buildFrom(request("OPTIONS", "Bad Name: x\r\n")).problem);
    EXPECT_EQ(SipReply::REJECTED, buildFrom(request("OPTIONS", "Bad Name: x\r\n")).verdict);
}

TEST(SipResponseBuilderTest, BadToParametersAreAnswered400)
{
    std::string text = request("OPTIONS");
    text.replace(text.find("To: <sip:b@127.0.0.1>"), 21, "To: <sip:b@127.0.0.1>;a b");
    const SipReply reply = buildFrom(text);
    EXPECT_EQ(SipReply::REJECTED, reply.verdict);
    EXPECT_EQ("bad parameters in To", reply.problem);

    text = request("OPTIONS");
    text.replace(text.find("To: <sip:b@127.0.0.1>"), 21, "To: <sip:b@127.0.0.1");
    EXPECT_EQ("bad To", buildFrom(text).problem);
}

TEST(SipResponseBuilderTest, OtherSipVersionIsAnswered505)
{
    std::string text = request("OPTIONS");
    text.replace(text.find("SIP/2.0\r\n"), 7, "SIP/3.0");
    const SipReply reply = buildFrom(text);
    EXPECT_EQ(SipReply::REJECTED, reply.verdict);
    EXPECT_EQ("SIP/2.0 505 Version Not Supported", statusLine(reply.response));
}

TEST(SipResponseBuilderTest, GarbageAndBrokenRequestLinesAreDropped)
{
    const std::string garbage[] = {std::string("\0\0\0\0", 4),
                                   "hello world",
                                   "GET / HTTP/1.1\r\nHost: x\r\n\r\n",
                                   "OPTIONS sip:x SIP/2.0 extra\r\n\r\n",
                                   "OPTIONS\r\n\r\n",
                                   "OPTIONS sip:x\r\n\r\n",
                                   "OPT IONS sip:x SIP/2.0\r\n\r\n",
                                   "OPTIONS nocolon SIP/2.0\r\n\r\n",
                                   "OPTIONS sip:x SIP/2\r\n\r\n",
                                   std::string("OPTIONS sip:x\0 SIP/2.0\r\n\r\n", 26),
                                   "\xff\xfe\xfd"};
    for (const std::string& text : garbage)
    {
        const SipReply reply = buildFrom(text);
        EXPECT_EQ(SipReply::DROPPED, reply.verdict) << text;
        EXPECT_FALSE(reply.hasResponse()) << text;
    }
    EXPECT_EQ("no request line", buildFrom("hello world").problem);
}

TEST(SipResponseBuilderTest, EmptyDatagramIsDropped)
{
    SipResponseBuilder builder(options());
    ZnHandle<ZnByteArray> bytes = ZnByteArray::sCreate("OPTIONS");
    EXPECT_EQ("empty datagram", builder.build(*bytes, 0, 0, kSource, kSourcePort).problem);
    EXPECT_EQ("empty datagram", builder.build(*bytes, 7, 5, kSource, kSourcePort).problem);
}

TEST(SipResponseBuilderTest, OnlyTheWindowOfTheArrayIsRead)
{
    SipResponseBuilder builder(options());
    const std::string message = request("OPTIONS");
    const std::string around = "JUNK" + message + "MORE JUNK WITHOUT END";
    ZnHandle<ZnByteArray> bytes =
        ZnByteArray::sCreate(static_cast<unsigned int>(around.size()), around.data());
    const SipReply reply =
        builder.build(*bytes, 4, static_cast<unsigned int>(message.size()), kSource, kSourcePort);
    EXPECT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;

    // A window cut before the empty line is read as the truncated head it is.
    const SipReply cut = builder.build(*bytes, 4, static_cast<unsigned int>(message.size() - 2),
                                       kSource, kSourcePort);
    EXPECT_EQ("no empty line after the head", cut.problem);

    // A length past the end of the array is cut to it.
    const SipReply past = builder.build(*bytes, 4, 1u << 20, kSource, kSourcePort);
    EXPECT_EQ(SipReply::ANSWERED, past.verdict) << past.problem;
}

TEST(SipResponseBuilderTest, EveryPrefixOfARequestIsHandled)
{
    SipResponseBuilder builder(options());
    const std::string text(kInvite);
    ZnHandle<ZnByteArray> bytes =
        ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data());
    unsigned int answered = 0;
    for (unsigned int n = 0; n <= text.size(); ++n)
    {
        const SipReply reply = builder.build(*bytes, 0, n, kSource, kSourcePort);
        if (reply.hasResponse())
        {
            ++answered;
            EXPECT_EQ(0u, reply.response.find("SIP/2.0 ")) << n;
            EXPECT_EQ(reply.response.size() - 4, reply.response.find("\r\n\r\n")) << n;
        }
    }
    // The prefixes that hold the five headers a response needs are answered (400 for those cut
    // before the end of the body); the others are dropped.
    EXPECT_GT(answered, 1u);
    EXPECT_EQ(SipReply::ANSWERED,
              builder.build(*bytes, 0, static_cast<unsigned int>(text.size()), kSource, kSourcePort)
                  .verdict);
}

TEST(SipResponseBuilderTest, RandomBytesNeverBreakIt)
{
    SipResponseBuilder builder(options());
    std::mt19937 random(20240601);
    const std::string base = request("INVITE");
    for (int round = 0; round < 2000; ++round)
    {
        std::string text = base;
        const int changes = 1 + static_cast<int>(random() % 8);
        for (int i = 0; i < changes; ++i)
        {
            text[random() % text.size()] = static_cast<char>(random() % 256);
        }
        if (round % 3 == 0)
        {
            text.resize(random() % text.size());
        }
        ZnHandle<ZnByteArray> bytes =
            ZnByteArray::sCreate(static_cast<unsigned int>(text.size()), text.data());
        const SipReply reply =
            builder.build(*bytes, 0, static_cast<unsigned int>(text.size()), kSource, kSourcePort);
        if (reply.hasResponse())
        {
            ASSERT_EQ(0u, reply.response.find("SIP/2.0 ")) << round;
            ASSERT_NE(0u, reply.destinationPort) << round;
        }
        else
        {
            ASSERT_TRUE(reply.verdict == SipReply::IGNORED || reply.verdict == SipReply::DROPPED)
                << round;
        }
    }
}

TEST(SipResponseBuilderTest, HugeHeaderIsReadWhole)
{
    const std::string big(60000, 'x');
    const SipReply reply = buildFrom(request("OPTIONS", "X-Big: " + big + "\r\n"));
    EXPECT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
}

TEST(SipResponseBuilderTest, RportSendsToTheSourcePortAndFillsInReceived)
{
    std::string text = request("OPTIONS");
    text.replace(text.find("branch=z9hG4bK-7"), 16, "branch=z9hG4bK-7;rport");
    SipResponseBuilder builder(options());
    const SipReply reply = buildFrom(builder, text, "127.0.0.1", 40000);
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ(40000u, reply.destinationPort);
    EXPECT_EQ(
        std::vector<std::string>{
            "SIP/2.0/UDP 127.0.0.1:5062;branch=z9hG4bK-7;rport=40000;received=127.0.0.1"},
        values(reply.response, "Via"));
}

TEST(SipResponseBuilderTest, ViaSentByOtherThanTheSourceGetsReceivedAndItsPort)
{
    std::string text = request("OPTIONS");
    text.replace(text.find("127.0.0.1:5062;branch"), 14, "client.example.com:5070");
    const SipReply reply = buildFrom(text);
    ASSERT_EQ(SipReply::ANSWERED, reply.verdict) << reply.problem;
    EXPECT_EQ(5070u, reply.destinationPort);
    EXPECT_EQ(
        std::vector<std::string>{
            "SIP/2.0/UDP client.example.com:5070;branch=z9hG4bK-7;received=127.0.0.1"},
        values(reply.response, "Via"));

    // Without a port in sent-by the response goes to 5060.
    text = request("OPTIONS");
    text.replace(text.find("127.0.0.1:5062;"), 15, "127.0.0.1;");
    EXPECT_EQ(5060u, buildFrom(text).destinationPort);
}

TEST(SipResponseBuilderTest, StatisticsCountAndFormatTheLine)
{
    SipStatistics statistics;
    const SipStatistics::Snapshot start = statistics.snapshot();
    EXPECT_EQ(0u, start.received);

    SipReply answered;
    answered.verdict = SipReply::ANSWERED;
    answered.response = "SIP/2.0 200 OK\r\n\r\n";
    SipReply rejected;
    rejected.verdict = SipReply::REJECTED;
    rejected.response = "SIP/2.0 400 Bad Request\r\n\r\n";
    SipReply dropped;
    dropped.verdict = SipReply::DROPPED;
    SipReply ignored;
    ignored.verdict = SipReply::IGNORED;

    for (int i = 0; i < 10; ++i)
    {
        statistics.countReceived();
    }
    for (int i = 0; i < 6; ++i)
    {
        statistics.countReply(answered);
    }
    statistics.countReply(rejected);
    statistics.countReply(dropped);
    statistics.countReply(dropped);
    statistics.countReply(ignored);

    const SipStatistics::Snapshot now = statistics.snapshot();
    EXPECT_EQ(10u, now.received);
    EXPECT_EQ(7u, now.answered);
    EXPECT_EQ(3u, now.malformed);
    EXPECT_EQ("received=10 answered=7 malformed=3 rate=5/s",
              SipStatistics::sFormatLine(now, start, 2.0));
    EXPECT_EQ("received=10 answered=7 malformed=3 rate=0/s",
              SipStatistics::sFormatLine(now, now, 1.0));
    EXPECT_EQ("received=10 answered=7 malformed=3 rate=0/s",
              SipStatistics::sFormatLine(now, start, 0.0));
}

} // namespace

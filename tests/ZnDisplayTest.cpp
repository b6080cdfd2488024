// The printed forms of the core classes on an output stream.
#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnGhbnError.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnSocketError.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnStringBuffer.h"
#include "ZnUtil/ZnSystemError.h"

#include "tavoris/Hostent.h"
#include "tavoris/LogLevel.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "support/CapturingAppender.h"
#include "support/StringOutputStream.h"

namespace
{

using ZnTest::StringOutputStream;

/// A class of its own, to show that the bare run-time class name is printed.
class DisplayProbe : public ZnObject
{
};

/// Eight upper-case hexadecimal digits of the low 32 bits of \p p.
std::string low32Hex(const void* p)
{
    char text[16];
    snprintf(text, sizeof text, "%08X",
             static_cast<unsigned int>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p))));
    return text;
}

template <class Action>
ZnHandle<ZnException> catchThrown(Action&& action)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        return e;
    }
    return ZnHandle<ZnException>();
}

std::string displayed(const ZnHandle<ZnException>& e, int* flushes = nullptr)
{
    StringOutputStream out;
    e->display(out);
    if (flushes != nullptr)
    {
        *flushes = out.flushes;
    }
    return out.text;
}

std::string systemText(int errnoValue)
{
    return strerror(errnoValue);
}

TEST(ZnDisplayTest, ObjectShowsCountAndClassName)
{
    ZnHandle<ZnObject> object(new ZnObject);
    StringOutputStream out;
    object->display(out, false);
    EXPECT_EQ(out.text, "1\tZnObject");
    EXPECT_EQ(out.flushes, 0);
}

TEST(ZnDisplayTest, ObjectShowsCurrentCount)
{
    ZnHandle<ZnObject> object(new ZnObject);
    ZnHandle<ZnObject> second(object);
    StringOutputStream out;
    object->display(out, false);
    EXPECT_EQ(out.text, "2\tZnObject");
}

TEST(ZnDisplayTest, UnheldObjectShowsCountZero)
{
    ZnObject object;
    StringOutputStream out;
    object.display(out, false);
    EXPECT_EQ(out.text, "0\tZnObject");
}

TEST(ZnDisplayTest, ObjectWithAddressShowsLowThirtyTwoBitsInHex)
{
    ZnHandle<ZnObject> object(new ZnObject);
    StringOutputStream out;
    object->display(out, true);
    EXPECT_EQ(out.text, "1 \t(" + low32Hex(object) + ")\tZnObject");
}

TEST(ZnDisplayTest, ObjectShowsBareRunTimeClassName)
{
    ZnHandle<DisplayProbe> probe(new DisplayProbe);
    StringOutputStream out;
    probe->display(out, false);
    EXPECT_EQ(out.text, "1\tDisplayProbe");
    StringOutputStream withAddress;
    probe->display(withAddress, true);
    EXPECT_EQ(withAddress.text, "1 \t(" + low32Hex(probe) + ")\tDisplayProbe");
}

TEST(ZnDisplayTest, StringBufferShowsObjectWithAddressThenCharacters)
{
    ZnString text("some chars");
    StringOutputStream out;
    text.buffer()->display(out);
    EXPECT_EQ(out.text, "1 \t(" + low32Hex(text.buffer()) + ")\tZnStringBuffer" + "some chars");
    EXPECT_EQ(out.flushes, 0);
}

TEST(ZnDisplayTest, EmptyStringBufferShowsObjectOnly)
{
    ZnString text(ZnStringBuffer::sCreate(nullptr, 0, 8));
    ASSERT_FALSE(text.isNil());
    StringOutputStream out;
    text.buffer()->display(out);
    EXPECT_EQ(out.text, "1 \t(" + low32Hex(text.buffer()) + ")\tZnStringBuffer");
}

TEST(ZnDisplayTest, ExceptionShowsMessageOnly)
{
    int flushes = -1;
    EXPECT_EQ(displayed(new ZnException("it broke"), &flushes), "it broke");
    EXPECT_EQ(flushes, 0);
}

TEST(ZnDisplayTest, ExceptionWithNilMessageShowsNothing)
{
    EXPECT_EQ(displayed(new ZnException), "");
    EXPECT_EQ(displayed(new ZnException("")), "");
}

TEST(ZnDisplayTest, ThrownExceptionShowsMessage)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnException::sThrow("thrown text"); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ(displayed(e), "thrown text");
}

TEST(ZnDisplayTest, AssertionFailureShowsThreeLines)
{
    ZnHandle<ZnException> e(new ZnAssertionFailure("x > 0", "Widget", 42, "Jan  2 2024 10:11:12"));
    EXPECT_EQ(displayed(e), "x > 0\nWidget line 42\nCompilation : Jan  2 2024 10:11:12\n");
}

TEST(ZnDisplayTest, AssertionFailureFlushesAfterLastLine)
{
    ZnHandle<ZnException> e(new ZnAssertionFailure("x > 0", "Widget", 42, "stamp"));
    StringOutputStream out;
    e->display(out);
    EXPECT_EQ(out.flushes, 1);
    EXPECT_FALSE(out.writtenSinceFlush);
}

TEST(ZnDisplayTest, AssertionFailureLineIsUnsigned)
{
    ZnHandle<ZnException> e(new ZnAssertionFailure("m", "F", 4294967295u, "s"));
    EXPECT_EQ(displayed(e), "m\nF line 4294967295\nCompilation : s\n");
}

TEST(ZnDisplayTest, AssertionFailureWithNilMessageStartsWithNewline)
{
    ZnHandle<ZnException> e(new ZnAssertionFailure(nullptr, "F", 7, "s"));
    EXPECT_EQ(displayed(e), "\nF line 7\nCompilation : s\n");
}

TEST(ZnDisplayTest, ThrownAssertionFailureShowsBuildStamp)
{
    ZnTest::LogCapture capture("corvane.core.Assertion", Tavoris::ERROR_LOG_LEVEL);
    ZnHandle<ZnException> e = catchThrown(
        [] { ZnAssertionFailure::sThrow("state != 0", "ZnDisplayTest", 99, ZN_COMPILED); });
    ASSERT_FALSE(e.isNil());
    int flushes = 0;
    EXPECT_EQ(displayed(e, &flushes),
              std::string("state != 0\nZnDisplayTest line 99\nCompilation : ") + ZN_COMPILED +
                  "\n");
    EXPECT_EQ(flushes, 1);
    EXPECT_EQ(capture.find("state != 0").size(), 1u);
}

TEST(ZnDisplayTest, SystemErrorShowsMessageTextAndNumber)
{
    int flushes = -1;
    EXPECT_EQ(displayed(new ZnSystemError("x", EACCES), &flushes),
              "x: " + systemText(EACCES) + " (" + std::to_string(EACCES) + ")");
    EXPECT_EQ(flushes, 0);
}

TEST(ZnDisplayTest, SystemErrorTextHasNoLineEnd)
{
    const std::string text = displayed(new ZnSystemError("open", ENOENT));
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find('\r'), std::string::npos);
}

TEST(ZnDisplayTest, SystemErrorNumberIsSigned)
{
    EXPECT_EQ(displayed(new ZnSystemError("x", -5)), "x: " + systemText(-5) + " (-5)");
}

TEST(ZnDisplayTest, SystemErrorWithNilMessageStartsWithSeparator)
{
    EXPECT_EQ(displayed(new ZnSystemError), ": " + systemText(0) + " (0)");
}

TEST(ZnDisplayTest, SystemErrorWithSocketNumberShowsSystemText)
{
    EXPECT_EQ(displayed(new ZnSystemError("x", 10048)),
              "x: " + systemText(EADDRINUSE) + " (10048)");
}

TEST(ZnDisplayTest, SocketErrorShowsTableText)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnSocketError::sThrow("bind", 10048); });
    ASSERT_FALSE(e.isNil());
    int flushes = -1;
    EXPECT_EQ(displayed(e, &flushes), "bind: Address already in use. (10048)");
    EXPECT_EQ(flushes, 0);
}

TEST(ZnDisplayTest, SocketErrorInGapFallsBackToSystemText)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnSocketError::sThrow("x", 10071); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ(displayed(e), "x: " + ZnSystemError::sGetSystemText(10071) + " (10071)");
    EXPECT_EQ(displayed(e), "x: " + systemText(EREMOTE) + " (10071)");
}

TEST(ZnDisplayTest, SocketErrorOfResolverShowsTableText)
{
    ZnHandle<ZnException> e = catchThrown([] { ZnSocketError::sThrow("lookup", 11004); });
    ASSERT_FALSE(e.isNil());
    EXPECT_EQ(displayed(e), "lookup: Valid name, no data record of requested type. (11004)");
}

TEST(ZnDisplayTest, SocketErrorTableEnds)
{
    EXPECT_EQ(displayed(new ZnSocketError("a", 10004)), "a: Interrupted function call. (10004)");
    EXPECT_EQ(displayed(new ZnSocketError("a", 10112)), "a: WSAEREFUSED (10112)");
    EXPECT_EQ(displayed(new ZnSocketError("a", 11001)), "a: Host not found. (11001)");
    EXPECT_EQ(displayed(new ZnSocketError("a", 10059)), "a: WSAETOOMANYREFS (10059)");
}

TEST(ZnDisplayTest, SocketErrorOutsideTableFallsBackToSystemText)
{
    for (int number : {10003, 10113, 11000, 11005, 10094, EACCES})
    {
        EXPECT_EQ(displayed(new ZnSocketError("a", number)),
                  "a: " + ZnSystemError::sGetSystemText(number) + " (" + std::to_string(number) +
                      ")")
            << number;
    }
}

TEST(ZnDisplayTest, SocketErrorWithNilMessageStartsWithSeparator)
{
    EXPECT_EQ(displayed(new ZnSocketError(nullptr, 10061)), ": Connection refused. (10061)");
}

TEST(ZnDisplayTest, GhbnErrorShowsLeadingSeparatorAndStatusText)
{
    ZnHandle<ZnException> e = catchThrown(
        [] { ZnGhbnError::sThrow("no.such.host", Tavoris::Hostent::GHBN_HOST_NOT_FOUND); });
    ASSERT_FALSE(e.isNil());
    int flushes = -1;
    EXPECT_EQ(displayed(e, &flushes), std::string(": no.such.host (") +
                                          Tavoris::Hostent::getGetHostByNameStatusString(
                                              Tavoris::Hostent::GHBN_HOST_NOT_FOUND) +
                                          ")");
    EXPECT_EQ(flushes, 0);
}

TEST(ZnDisplayTest, GhbnErrorShowsNoNumber)
{
    const std::string text = displayed(new ZnGhbnError("host", Tavoris::Hostent::GHBN_TRY_AGAIN));
    EXPECT_EQ(text,
              std::string(": host (") +
                  Tavoris::Hostent::getGetHostByNameStatusString(Tavoris::Hostent::GHBN_TRY_AGAIN) +
                  ")");
    EXPECT_EQ(text.find("(0)"), std::string::npos);
}

TEST(ZnDisplayTest, GhbnErrorWithNilMessage)
{
    EXPECT_EQ(displayed(new ZnGhbnError(nullptr, Tavoris::Hostent::GHBN_NO_DATA)),
              std::string(":  (") +
                  Tavoris::Hostent::getGetHostByNameStatusString(Tavoris::Hostent::GHBN_NO_DATA) +
                  ")");
}

} // namespace

#include "ZnUtil/ZnOutputSink.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnString.h"

#include <gtest/gtest.h>

namespace
{

/// A sink that counts what reaches its byte write, to show that the block write and the
/// insertion operators do not fall back to it.
class CountingSink : public ZnOutputSink
{
public:
    void write(int aByte) override
    {
        ++byteWrites;
        ZnOutputSink::write(aByte);
    }
    using ZnOutputSink::write;

    int byteWrites = 0;
};

TEST(ZnOutputSinkTest, BlockWriteSwallowsWithoutByteWrites)
{
    CountingSink sink;
    sink.write("abcdef", 6, 0);
    EXPECT_EQ(sink.byteWrites, 0);
}

TEST(ZnOutputSinkTest, TextAndNumbersSwallowedWithoutByteWrites)
{
    CountingSink sink;
    sink << "text" << 42 << 7u << 1.5 << static_cast<const void*>(&sink) << ZnString("s");
    EXPECT_EQ(sink.byteWrites, 0);
}

TEST(ZnOutputSinkTest, ArrayWriteSwallowedWithoutByteWrites)
{
    CountingSink sink;
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate("payload");
    sink.write(array, 0, 0);
    array->display(sink);
    EXPECT_EQ(sink.byteWrites, 0);
    EXPECT_EQ(array->length(), 7u);
}

TEST(ZnOutputSinkTest, ByteWriteAndFlushDoNothing)
{
    ZnOutputSink sink;
    ZnOutputStream& out = sink;
    ZnOutputStream& result = out << 'x' << endl << flush;
    EXPECT_EQ(&result, &out);
    out.flush();
    out.write(65);
    EXPECT_EQ(sink.getRefCount(), 0u);
}

TEST(ZnOutputSinkTest, InstanceIsOneObject)
{
    ZnOutputSink& first = ZnOutputSink::sGetInstance();
    ZnOutputSink& second = ZnOutputSink::sGetInstance();
    EXPECT_EQ(&first, &second);
    EXPECT_STREQ(first.getClassName(), "ZnOutputSink");
}

TEST(ZnOutputSinkTest, InstanceHoldsItsOwnReference)
{
    // Made at load time and referenced by itself, so that handles never delete it.
    EXPECT_GE(ZnOutputSink::sGetInstance().getRefCount(), 1u);
}

TEST(ZnOutputSinkTest, InstanceOutlivesHandles)
{
    ZnOutputSink& sink = ZnOutputSink::sGetInstance();
    const unsigned long before = sink.getRefCount();
    {
        ZnHandle<ZnOutputStream> held(&sink);
        EXPECT_EQ(sink.getRefCount(), before + 1);
    }
    EXPECT_EQ(sink.getRefCount(), before);
    sink << "still usable" << endl;
    EXPECT_EQ(&ZnOutputSink::sGetInstance(), &sink);
}

} // namespace

#include "ZnUtil/UUID.h"

#include "ZnUtil/MD5.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnPlatform.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include <sys/sysinfo.h>
#include <unistd.h>

namespace
{

/// 100-ns ticks from 1582-10-15 (the Gregorian reform) to 1601-01-01 (the file time epoch):
/// 6653 days.
const uint64_t kGregorianToFileTime = 5748192000000000ULL;

/// Characters of a computer name in the seed, the terminator included.
const unsigned int kComputerNameField = 16;

/// The 64-bit memory status block of the seed: length, load, then physical, page file and
/// virtual memory, total and available.
struct SeedMemoryStatus
{
    uint32_t length;
    uint32_t memoryLoad;
    uint64_t totalPhys;
    uint64_t availPhys;
    uint64_t totalPageFile;
    uint64_t availPageFile;
    uint64_t totalVirtual;
    uint64_t availVirtual;
};

/// The 64-bit system information block of the seed.
struct SeedSystemInfo
{
    uint16_t processorArchitecture;
    uint16_t reserved;
    uint32_t pageSize;
    uint64_t minimumApplicationAddress;
    uint64_t maximumApplicationAddress;
    uint64_t activeProcessorMask;
    uint32_t numberOfProcessors;
    uint32_t processorType;
    uint32_t allocationGranularity;
    uint16_t processorLevel;
    uint16_t processorRevision;
};

/// The 144 bytes whose MD5 digest gives the node.
struct SeedBlock
{
    SeedMemoryStatus memory;
    SeedSystemInfo system;
    uint64_t fileTime;
    uint64_t performanceCounter;
    uint32_t tickCount;
    uint32_t computerNameLength;
    char computerName[kComputerNameField];
};

static_assert(sizeof(SeedMemoryStatus) == 56, "memory status block of 56 bytes");
static_assert(sizeof(SeedSystemInfo) == 48, "system information block of 48 bytes");
static_assert(sizeof(SeedBlock) == 144, "seed block of 144 bytes");

/// The x86-64 values of the processor fields and the top of a 47-bit user address space.
const uint16_t kArchitectureAmd64 = 9;
const uint32_t kProcessorTypeAmd64 = 8664;
const uint64_t kUserAddressSpace = 1ULL << 47;

/// The system time as 100-ns ticks since 1582-10-15.
uint64_t readSystemTime()
{
    return ZnPlatform::sGetSystemTimeAsFileTime() + kGregorianToFileTime;
}

// Time-stamp and seed state of uuid_create_string, guarded by the callers (see UUID).
ZnUUIDClock s_clock(&readSystemTime);
bool s_randSeeded = false;

void fillMemoryStatus(SeedMemoryStatus& status)
{
    status.length = sizeof(SeedMemoryStatus);
    struct sysinfo info;
    if (sysinfo(&info) != 0)
    {
        return;
    }
    const uint64_t unit = info.mem_unit != 0 ? info.mem_unit : 1;
    status.totalPhys = static_cast<uint64_t>(info.totalram) * unit;
    status.availPhys = static_cast<uint64_t>(info.freeram) * unit;
    status.totalPageFile = static_cast<uint64_t>(info.totalram + info.totalswap) * unit;
    status.availPageFile = static_cast<uint64_t>(info.freeram + info.freeswap) * unit;
    if (info.totalram != 0)
    {
        status.memoryLoad =
            static_cast<uint32_t>(100 * (info.totalram - info.freeram) / info.totalram);
    }
    // Linux reports no per-process virtual memory figures here: the size of the user address
    // space stands for the total, and the uptime, load averages and process count, which change
    // from one call to the next, take the place of what is available.
    status.totalVirtual = kUserAddressSpace;
    status.availVirtual =
        static_cast<uint64_t>(info.uptime) ^ (static_cast<uint64_t>(info.loads[0]) << 8) ^
        (static_cast<uint64_t>(info.loads[1]) << 24) ^
        (static_cast<uint64_t>(info.loads[2]) << 40) ^ (static_cast<uint64_t>(info.procs) << 48);
}

void fillSystemInfo(SeedSystemInfo& system)
{
    const long pageSize = sysconf(_SC_PAGESIZE);
    const long processors = sysconf(_SC_NPROCESSORS_ONLN);
    system.processorArchitecture = kArchitectureAmd64;
    system.pageSize = pageSize > 0 ? static_cast<uint32_t>(pageSize) : 4096;
    system.minimumApplicationAddress = system.pageSize;
    system.maximumApplicationAddress = kUserAddressSpace - system.pageSize - 1;
    system.numberOfProcessors = processors > 0 ? static_cast<uint32_t>(processors) : 1;
    system.activeProcessorMask =
        system.numberOfProcessors >= 64 ? ~0ULL : (1ULL << system.numberOfProcessors) - 1;
    system.processorType = kProcessorTypeAmd64;
    // mmap places mappings at page granularity.
    system.allocationGranularity = system.pageSize;
}

void fillComputerName(SeedBlock& block)
{
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof(name) - 1) != 0)
    {
        return;
    }
    // A 16-byte field as the computer name had: at most 15 characters and a terminator.
    const size_t length = strnlen(name, kComputerNameField - 1);
    memcpy(block.computerName, name, length);
    block.computerNameLength = static_cast<uint32_t>(length);
}

/// The 16-byte digest over the machine and clock readings.
void computeSeed(unsigned char seed[MD5::MD5_LENGTH])
{
    SeedBlock block;
    memset(&block, 0, sizeof(block));
    fillMemoryStatus(block.memory);
    fillSystemInfo(block.system);
    block.fileTime = ZnPlatform::sGetSystemTimeAsFileTime();
    block.performanceCounter = ZnPlatform::sGetMonotonicNs();
    block.tickCount = static_cast<uint32_t>(ZnPlatform::sGetTickCount());
    fillComputerName(block);

    MD5 md5;
    ZnHandle<ZnByteArray> digest = md5.digest(ZnByteArray::sCreate(sizeof(block), &block));
    memcpy(seed, digest->getBytes(), MD5::MD5_LENGTH);
}

/// Writes the \p digits low hexadecimal digits of \p value at \p out, most significant first.
char* writeHex(char* out, uint64_t value, unsigned int digits)
{
    static const char kDigits[] = "0123456789abcdef";
    for (unsigned int i = digits; i > 0; --i)
    {
        out[i - 1] = kDigits[value & 0x0F];
        value >>= 4;
    }
    return out + digits;
}

} // namespace

uint64_t ZnUUIDClock::next()
{
    if (!m_initialised)
    {
        m_ticksThisReading = UUIDS_PER_TICK;
        m_initialised = true;
    }
    for (;;)
    {
        const uint64_t now = m_read();
        if (now != m_last)
        {
            m_ticksThisReading = 0;
            m_last = now;
            return now;
        }
        if (m_ticksThisReading < UUIDS_PER_TICK)
        {
            ++m_ticksThisReading;
            return now + m_ticksThisReading;
        }
        // More stamps than the clock has ticks: wait for the next reading.
    }
}

void UUID::uuid_create_string(char* const buffer)
{
    const uint64_t earlier = s_clock.next();

    unsigned char seed[MD5::MD5_LENGTH];
    computeSeed(seed);
    // The top bit of the node's first byte marks a node that is not a network address.
    seed[0] |= 0x80;

    if (!s_randSeeded)
    {
        const uint64_t t = readSystemTime();
        srand(static_cast<unsigned int>((t >> 10) ^ (t >> 42)));
        s_randSeeded = true;
    }
    uint16_t clockSequence = static_cast<uint16_t>(rand());

    const uint64_t stamp = s_clock.next();
    if (stamp < earlier)
    {
        ++clockSequence;
    }

    char* out = buffer;
    out = writeHex(out, stamp & 0xFFFFFFFFu, 8);
    *out++ = '-';
    out = writeHex(out, (stamp >> 32) & 0xFFFFu, 4);
    *out++ = '-';
    out = writeHex(out, ((stamp >> 48) & 0x0FFFu) | 0x1000u, 4);
    *out++ = '-';
    out = writeHex(out, ((clockSequence >> 8) & 0x3Fu) | 0x80u, 2);
    out = writeHex(out, clockSequence & 0xFFu, 2);
    *out++ = '-';
    for (unsigned int i = 0; i < 6; ++i)
    {
        out = writeHex(out, seed[i], 2);
    }
    *out = '\0';
}

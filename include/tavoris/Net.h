// The start and end of the process's use of the network library.
#ifndef TAVORIS_NET_H
#define TAVORIS_NET_H

namespace Tavoris
{

/// The network library's set-up, which the process object makes while it runs.
///
/// Thread safety: both calls may come from any thread; they are counted, and the library stays
/// set up until each initializeLibrary() has had its closeLibrary().
class Net
{
public:
    /// Sets up the network library (on this platform: nothing but the count).
    /// \return true.
    static bool initializeLibrary();

    /// Ends one initializeLibrary(); a call without one is ignored.
    static void closeLibrary();

    /// True while some initializeLibrary() has not been closed.
    static bool isInitialized();

    /// The initializeLibrary() calls not yet closed.
    static int getInitializeCount();
};

} // namespace Tavoris

#endif // TAVORIS_NET_H

// The exception of programming errors, with the source position of the failed check.
#ifndef ZNUTIL_ZNASSERTIONFAILURE_H
#define ZNUTIL_ZNASSERTIONFAILURE_H

#include "ZnUtil/ZnException.h"

/// The build stamp of the source that expands it, for ZnAssertionFailure::sThrow.
#define ZN_COMPILED __DATE__ " " __TIME__

/// A failed check of the program's own logic: the message, the short source name and line of the
/// check, and the build stamp of that source.
class ZnAssertionFailure : public ZnException
{
public:
    /// \p file and \p compiled are kept, not copied: they must be static texts.
    ZnAssertionFailure(const char* message, const char* file, unsigned int line,
                       const char* compiled);
    ~ZnAssertionFailure() override;

    /// Reports \p message, \p file and \p line on the assertion service, then throws a
    /// ZnAssertionFailure, also when the service returns.
    [[noreturn]] static void sThrow(const char* message, const char* file, unsigned int line,
                                    const char* compiled);

    const char* getFile() const { return m_file; }
    unsigned int getLine() const { return m_line; }
    const char* getCompiled() const { return m_compiled; }

    /// Prints the message, then "file line N", then "Compilation : " and the stamp, on three
    /// lines, and flushes \p out.
    void display(ZnOutputStream& out) const override;

private:
    const char* m_file;
    unsigned int m_line;
    const char* m_compiled;
};

#endif // ZNUTIL_ZNASSERTIONFAILURE_H

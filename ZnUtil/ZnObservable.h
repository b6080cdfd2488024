// The watched end of a link of the library's observer chains.
#ifndef ZNUTIL_ZNOBSERVABLE_H
#define ZNUTIL_ZNOBSERVABLE_H

#include "ZnUtil/ZnObserver.h"

/// Something with one observer, which it notifies synchronously; itself an observer, so that
/// chains can be built in which each link watches the one before it.
///
/// block() travels up the chain to the end that can wait for data, and a nil notification then
/// runs back down; unblock() is the request by which another thread wakes that wait.
/// Thread safety: the links carry no lock; see ZnObserver.
class ZnObservable : public ZnObserver
{
public:
    ZnObservable();
    /// An observer still attached is told "Disconnecting" by a ZnException argument.
    ~ZnObservable() override;

    /// Forwards down the chain: notifies this object's observer with this object as the source.
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override;

    /// Attaches \p aObserver. An observer that already has a source gets a ZnMultiSourceObserver
    /// between it and its sources.
    /// \throws ZnHandle<ZnException> "ZnObservable::attachObserver() ... The current
    /// implementation only allows a single observer" when an observer is attached already.
    virtual void attachObserver(ZnHandle<ZnObserver> aObserver);

    /// Detaches \p aObserver if it is the current observer; does nothing otherwise.
    virtual void detachObserver(ZnHandle<ZnObserver> aObserver);

    /// \return 1 with an observer, else 0.
    virtual unsigned int countObservers() const;

    /// Waits for input at the head of the chain, then notifies a nil argument down.
    /// \return the source's answer, or true without a source; false means the source ended.
    virtual bool block();

    /// Releases a block() from another thread, then notifies a nil argument down.
    /// \return the source's answer, or true without a source.
    virtual bool unblock();

    /// Calls the observer's onNotification with this object as the source; without an observer
    /// the argument is dropped.
    void notifyObservers(ZnHandle<ZnObject> aArgument);

    /// The current observer, nil if none.
    ZnHandle<ZnObserver> getObserver() const { return m_observer; }

private:
    friend class ZnMultiSourceObserver;

    ZnHandle<ZnObserver> m_observer;
};

#endif // ZNUTIL_ZNOBSERVABLE_H

// The watching end of a link of the library's observer chains.
#ifndef ZNUTIL_ZNOBSERVER_H
#define ZNUTIL_ZNOBSERVER_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

class ZnObservable;

/// An object that watches one observable, its source, and is told of it by onNotification.
///
/// The link is a deliberate reference cycle: the source holds its observer and the observer holds
/// its source, until one side detaches. An observer with several sources gets a
/// ZnMultiSourceObserver as its one source, made for it by ZnObservable::attachObserver.
/// Thread safety: a notification runs on the notifier's thread; wiring is to be finished before
/// notifications start, or guarded by the owner.
class ZnObserver : public ZnObject
{
public:
    ZnObserver();
    /// Detaches from the source, then drops it.
    ~ZnObserver() override;

    /// Called by the source, on its thread. \p aArgument nil means "look at your source"; a
    /// ZnException "Disconnecting" means the source is going away. Does nothing here.
    virtual void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument);

    /// The observable this object watches, nil if none.
    ZnHandle<ZnObservable> getSource() const;

protected:
    /// Asks the source, if any, to detach this observer. The source's reference on this object
    /// goes with it, so this object may be deleted before the call returns.
    void detach();

    /// detach() for a destructor: this object's count is not touched on the way, so an object
    /// being destroyed is not deleted a second time.
    void detachWhileDestroying();

    friend class ZnObservable;
    friend class ZnMultiSourceObserver;

    /// The watched observable; it keeps the source alive. Subclasses that manage their own
    /// links may read and clear it.
    ZnHandle<ZnObservable> m_source;
};

#endif // ZNUTIL_ZNOBSERVER_H

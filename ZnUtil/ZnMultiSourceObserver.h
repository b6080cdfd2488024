// The fan-in of several observables into one observer.
#ifndef ZNUTIL_ZNMULTISOURCEOBSERVER_H
#define ZNUTIL_ZNMULTISOURCEOBSERVER_H

#include "ZnUtil/ZnObservable.h"

#include <vector>

class ZnAggregatedObserver;
class ZnMutex;

/// Stands between an observer and its several sources: each source reports to an aggregated
/// observer of this object, and this object hands the notification to the observer with the
/// source's own identity, so the observer can tell its sources apart.
///
/// Made by ZnObservable::attachObserver when an observer that has a source attaches to a second
/// one; it lives through the observer's source handle. Thread safety: the list of sources is
/// guarded by a ZnMutex, held also across a source's attachObserver; several sources may notify
/// at once, so the final observer's onNotification may run on several threads together.
class ZnMultiSourceObserver : public ZnObservable
{
public:
    /// Makes \p aObserver this object's observer, takes over its present source, and adds
    /// \p aSecondSource.
    ZnMultiSourceObserver(ZnObserver* aObserver, ZnObservable* aSecondSource);
    ~ZnMultiSourceObserver() override;

    /// Attaches \p aSource through a new aggregated observer.
    /// \throws ZnHandle<ZnException> when \p aSource has an observer already.
    void addSource(ZnObservable* aSource);

    /// Detaches \p aSource and forgets it, keeping the order of the others; an unknown source is
    /// ignored.
    void removeSource(ZnObservable* aSource);

    /// Detaches every source.
    void detachAll();

    /// Number of sources.
    unsigned int countSources() const;

    /// Hands the notification to the observer with \p aSource unchanged.
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override;

    /// Detaching the observer detaches every source first.
    void detachObserver(ZnHandle<ZnObserver> aObserver) override;

private:
    std::vector<ZnAggregatedObserver*> m_sources; // owned; guarded by m_pMutex
    ZnMutex* m_pMutex;
};

#endif // ZNUTIL_ZNMULTISOURCEOBSERVER_H

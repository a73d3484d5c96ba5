#include "HarvestObserver.h"

namespace {

HarvestObserver*& Installed() {
    static HarvestObserver* observer = nullptr;
    return observer;
}

} // namespace

void SetHarvestObserver(HarvestObserver* observer) {
    Installed() = observer;
}

HarvestObserver* CurrentHarvestObserver() {
    return Installed();
}

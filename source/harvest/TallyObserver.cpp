#include "TallyObserver.h"

namespace {

TallyObserver*& Installed() {
    static TallyObserver* observer = nullptr;
    return observer;
}

} // namespace

void SetTallyObserver(TallyObserver* observer) {
    Installed() = observer;
}

TallyObserver* CurrentTallyObserver() {
    return Installed();
}

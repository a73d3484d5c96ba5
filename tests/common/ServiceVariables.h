#pragma once

#include <QByteArray>
#include <QString>

// This process pointed at a stand-in for the site's API, with the sample keys and no pacing to
// speak of; the variables go when the object does. At() moves it to another stand-in.
class ServiceVariables final {
public:
    explicit ServiceVariables(const QString& base) {
        At(base);
        qputenv("MARQUILL_EBAY_RATE", "1000");
        qputenv("MARQUILL_EBAY_CLIENT_ID", "sample-id");
        qputenv("MARQUILL_EBAY_CLIENT_SECRET", "sample-secret");
    }
    ~ServiceVariables() {
        for (const char* name : {"MARQUILL_EBAY_API", "MARQUILL_EBAY_RATE", "MARQUILL_EBAY_CLIENT_ID",
                                 "MARQUILL_EBAY_CLIENT_SECRET"})
            qunsetenv(name);
    }
    ServiceVariables(const ServiceVariables&) = delete;
    ServiceVariables& operator=(const ServiceVariables&) = delete;

    void At(const QString& base) { qputenv("MARQUILL_EBAY_API", base.toUtf8()); }
};

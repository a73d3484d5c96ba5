#pragma once

#include <QString>

// The user's own application keys for the site's API: a client id and its secret. The secret is
// never printed, logged or saved by the program; it only goes into the token request.
struct ApiKeys {
    QString clientId;
    QString clientSecret;
    // Why the keys the user gave cannot be used (a key file others can read, a broken file, one
    // variable without the other); empty when they can, or when none were given.
    QString problem;

    bool Usable() const { return problem.isEmpty() && !clientId.isEmpty() && !clientSecret.isEmpty(); }
};

// The keys from MARQUILL_EBAY_CLIENT_ID and MARQUILL_EBAY_CLIENT_SECRET when either is set, else
// from the key file.
ApiKeys ReadApiKeys();
// Whether the user has given keys at all, usable or not: a refresh in the window then goes through
// the API, so that a broken key file is reported rather than passed over.
bool ApiKeysGiven();
// The key file: "api-keys" in the user's configuration folder for Marquill (one file for the
// window and the command-line tool, whose application names differ).
QString ApiKeysFilePath();

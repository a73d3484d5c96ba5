#include "ApiKeys.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <sys/stat.h>

namespace {

const char* const IdVariable = "MARQUILL_EBAY_CLIENT_ID";
const char* const SecretVariable = "MARQUILL_EBAY_CLIENT_SECRET";

} // namespace

QString ApiKeysFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/marquill/api-keys");
}

bool ApiKeysGiven() {
    return qEnvironmentVariableIsSet(IdVariable) || qEnvironmentVariableIsSet(SecretVariable) ||
           QFile::exists(ApiKeysFilePath());
}

ApiKeys ReadApiKeys() {
    ApiKeys keys;
    if (qEnvironmentVariableIsSet(IdVariable) || qEnvironmentVariableIsSet(SecretVariable)) {
        keys.clientId = qEnvironmentVariable(IdVariable).trimmed();
        keys.clientSecret = qEnvironmentVariable(SecretVariable).trimmed();
        if (keys.clientId.isEmpty() || keys.clientSecret.isEmpty())
            keys.problem = QStringLiteral("The site's API needs both MARQUILL_EBAY_CLIENT_ID and "
                                          "MARQUILL_EBAY_CLIENT_SECRET; only one of them is set.");
        return keys;
    }
    const QString path = ApiKeysFilePath();
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        keys.problem = QStringLiteral("No application keys for the site's API: set MARQUILL_EBAY_CLIENT_ID "
                                      "and MARQUILL_EBAY_CLIENT_SECRET, or write them to %1 (mode 600).")
                           .arg(QDir::toNativeSeparators(path));
        return keys;
    }
    // A secret that other users can read is no longer the user's alone: refused before it is read.
    if ((info.st_mode & 077) != 0) {
        keys.problem = QStringLiteral("The key file %1 can be read or changed by other users (mode %2); the "
                                      "keys were not used. Run: chmod 600 %1")
                           .arg(QDir::toNativeSeparators(path))
                           .arg(info.st_mode & 0777, 3, 8, QLatin1Char('0'));
        return keys;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        keys.problem = QStringLiteral("Cannot read the key file %1: %2").arg(path, file.errorString());
        return keys;
    }
    int lineNumber = 0;
    while (!file.atEnd()) {
        ++lineNumber;
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        const qsizetype equals = line.indexOf(u'=');
        const QString name = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (equals > 0 && name == u"client_id") {
            keys.clientId = value;
        } else if (equals > 0 && name == u"client_secret") {
            keys.clientSecret = value;
        } else {
            // The line itself may hold the secret, so only its number is named.
            keys.problem = QStringLiteral("The key file %1 has a line that is not \"client_id = ...\" or "
                                          "\"client_secret = ...\" (line %2).")
                               .arg(path)
                               .arg(lineNumber);
            return keys;
        }
    }
    if (keys.clientId.isEmpty() || keys.clientSecret.isEmpty())
        keys.problem = QStringLiteral("The key file %1 needs both client_id and client_secret.").arg(path);
    return keys;
}

#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "ZVValue.h"
#include "core/integrations/authentication/ZVAuthenticationType.h"

/// The credentials of one account. Non-secret parts travel in the account's
/// dictionary form; secrets live only in the key store (ZVKeychainAccess),
/// under a key made from accountInformation, the account's accountIdentifier.
///
/// Fields may be read on the synchronization thread while the setup view
/// writes them on the main thread; every accessor copies under a small lock.
class ZVAuthentication {
public:
    /// The stored form and the account's accountIdentifier.
    ZVAuthentication(const ZVDictionary& dictionary, std::string accountInformation);
    virtual ~ZVAuthentication() = default;

    ZVAuthentication(const ZVAuthentication&) = delete;
    ZVAuthentication& operator=(const ZVAuthentication&) = delete;

    /// The credential object that an account of this authentication type
    /// keeps; nothing for `none` and `other`.
    static std::shared_ptr<ZVAuthentication> make(ZVAuthenticationType type, const ZVDictionary& dictionary,
                                                  const std::string& accountInformation);

    std::string accountInformation() const;
    void setAccountInformation(std::string accountInformation);

    /// The value of "KDIntegrationAuthentication" in the account's dictionary.
    virtual ZVDictionary dictionaryRepresentation() = 0;
    /// Writes the secrets to the key store. An empty secret never overwrites
    /// a stored one.
    virtual void saveKeychainInformation() {}
    /// The name of the small setup view of this kind of credential.
    virtual std::string setupViewNibName() const = 0;

protected:
    mutable std::mutex _fieldsLock;

private:
    std::string _accountInformation;
};

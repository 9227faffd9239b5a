#include "hosts/macos/SecItemKeychain.h"

#include "hosts/macos/FoundationText.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>

namespace cadora {

namespace {

static_assert(Keychain::success == errSecSuccess && Keychain::itemNotFound == errSecItemNotFound);

NSString* name(CFStringRef constant) {
    return (__bridge NSString*)constant;
}

// A dictionary that lives as long as this object. A variable of ARC's may let go of its object after its last
// use, and a call that gets the object as a CFDictionary is none.
class Attributes {
public:
    void set(CFStringRef attribute, id value) { dictionary_[name(attribute)] = value; }
    CFDictionaryRef get() const { return (__bridge CFDictionaryRef)dictionary_; }

private:
    NSMutableDictionary<NSString*, id>* const dictionary_ = [NSMutableDictionary dictionary];
};

Attributes baseQuery(const KeychainQuery& query) {
    Attributes attributes;
    attributes.set(kSecClass, (__bridge id)kSecClassGenericPassword);
    attributes.set(kSecAttrService, nsString(query.service));
    attributes.set(kSecAttrAccount, nsString(query.account));
    attributes.set(kSecUseDataProtectionKeychain, @(query.useDataProtectionKeychain));
    return attributes;
}

NSData* dataOf(const std::string& bytes) {
    return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

CFStringRef accessible(KeychainAccessibility accessibility) {
    switch (accessibility) {
    case KeychainAccessibility::afterFirstUnlock:
        return kSecAttrAccessibleAfterFirstUnlock;
    }
    return kSecAttrAccessibleAfterFirstUnlock;
}

} // namespace

Keychain::Status SecItemKeychain::copyMatching(const KeychainQuery& query, std::string* data) {
    @autoreleasepool {
        Attributes attributes = baseQuery(query);
        if (data == nullptr) {
            return SecItemCopyMatching(attributes.get(), nullptr);
        }
        attributes.set(kSecReturnData, @YES);
        attributes.set(kSecMatchLimit, (__bridge id)kSecMatchLimitOne);
        CFTypeRef result = nullptr;
        const OSStatus status = SecItemCopyMatching(attributes.get(), &result);
        const id found = CFBridgingRelease(result);
        if (status != errSecSuccess) {
            return status;
        }
        if (![found isKindOfClass:[NSData class]]) {
            return errSecDecode;
        }
        *data = stdString(static_cast<NSData*>(found));
        return errSecSuccess;
    }
}

Keychain::Status SecItemKeychain::update(const KeychainQuery& query, const std::string& data) {
    @autoreleasepool {
        const Attributes attributes = baseQuery(query);
        Attributes changes;
        changes.set(kSecValueData, dataOf(data));
        return SecItemUpdate(attributes.get(), changes.get());
    }
}

Keychain::Status SecItemKeychain::add(const KeychainQuery& query, const std::string& data,
                                      KeychainAccessibility accessibility) {
    @autoreleasepool {
        Attributes attributes = baseQuery(query);
        attributes.set(kSecValueData, dataOf(data));
        attributes.set(kSecAttrAccessible, (__bridge id)accessible(accessibility));
        return SecItemAdd(attributes.get(), nullptr);
    }
}

Keychain::Status SecItemKeychain::remove(const KeychainQuery& query) {
    @autoreleasepool {
        const Attributes attributes = baseQuery(query);
        return SecItemDelete(attributes.get());
    }
}

} // namespace cadora

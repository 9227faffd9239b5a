#include "hosts/macos/SecItemKeychain.h"

#include "hosts/macos/FoundationText.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>

namespace cadora {

namespace {

static_assert(Keychain::success == errSecSuccess && Keychain::itemNotFound == errSecItemNotFound);

using Attributes = NSMutableDictionary<NSString*, id>;

NSString* name(CFStringRef constant) {
    return (__bridge NSString*)constant;
}

Attributes* baseQuery(const KeychainQuery& query) {
    Attributes* const attributes = [NSMutableDictionary dictionary];
    attributes[name(kSecClass)] = (__bridge id)kSecClassGenericPassword;
    attributes[name(kSecAttrService)] = nsString(query.service);
    attributes[name(kSecAttrAccount)] = nsString(query.account);
    attributes[name(kSecUseDataProtectionKeychain)] = @(query.useDataProtectionKeychain);
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

CFDictionaryRef bridged(Attributes* attributes) {
    return (__bridge CFDictionaryRef)attributes;
}

} // namespace

Keychain::Status SecItemKeychain::copyMatching(const KeychainQuery& query, std::string* data) {
    @autoreleasepool {
        Attributes* const attributes = baseQuery(query);
        if (data == nullptr) {
            return SecItemCopyMatching(bridged(attributes), nullptr);
        }
        attributes[name(kSecReturnData)] = @YES;
        attributes[name(kSecMatchLimit)] = (__bridge id)kSecMatchLimitOne;
        CFTypeRef result = nullptr;
        const OSStatus status = SecItemCopyMatching(bridged(attributes), &result);
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
        Attributes* const changes = [NSMutableDictionary dictionary];
        changes[name(kSecValueData)] = dataOf(data);
        return SecItemUpdate(bridged(baseQuery(query)), bridged(changes));
    }
}

Keychain::Status SecItemKeychain::add(const KeychainQuery& query, const std::string& data,
                                      KeychainAccessibility accessibility) {
    @autoreleasepool {
        Attributes* const attributes = baseQuery(query);
        attributes[name(kSecValueData)] = dataOf(data);
        attributes[name(kSecAttrAccessible)] = (__bridge id)accessible(accessibility);
        return SecItemAdd(bridged(attributes), nullptr);
    }
}

Keychain::Status SecItemKeychain::remove(const KeychainQuery& query) {
    @autoreleasepool {
        return SecItemDelete(bridged(baseQuery(query)));
    }
}

} // namespace cadora

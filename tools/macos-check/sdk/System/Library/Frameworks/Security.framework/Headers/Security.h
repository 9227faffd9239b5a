#pragma once

#import <CoreFoundation/CoreFoundation.h>

#pragma clang assume_nonnull begin

enum : OSStatus {
    errSecSuccess = 0,
    errSecDuplicateItem = -25299,
    errSecItemNotFound = -25300,
    errSecDecode = -26275,
    errSecMissingEntitlement = -34018,
};

CONSTANT(CFStringRef, kSecClass);
CONSTANT(CFStringRef, kSecClassGenericPassword);
CONSTANT(CFStringRef, kSecAttrService);
CONSTANT(CFStringRef, kSecAttrAccount);
CONSTANT(CFStringRef, kSecAttrAccessible);
CONSTANT(CFStringRef, kSecAttrAccessibleAfterFirstUnlock);
CONSTANT(CFStringRef, kSecValueData);
CONSTANT(CFStringRef, kSecReturnData);
CONSTANT(CFStringRef, kSecMatchLimit);
CONSTANT(CFStringRef, kSecMatchLimitOne);
CONSTANT(CFStringRef, kSecUseDataProtectionKeychain) SINCE(10.15);

FUNCTION OSStatus SecItemCopyMatching(CFDictionaryRef query,
                                      CFTypeRef _Nullable* _Nullable CF_RETURNS_RETAINED result);
FUNCTION OSStatus SecItemUpdate(CFDictionaryRef query, CFDictionaryRef changes);
FUNCTION OSStatus SecItemAdd(CFDictionaryRef attributes,
                             CFTypeRef _Nullable* _Nullable CF_RETURNS_RETAINED result);
FUNCTION OSStatus SecItemDelete(CFDictionaryRef query);

typedef const struct __SecRandom* SecRandomRef;
CONSTANT(SecRandomRef _Nullable, kSecRandomDefault);
FUNCTION int SecRandomCopyBytes(SecRandomRef _Nullable generator, size_t count, void* bytes)
    __attribute__((warn_unused_result)) SINCE(10.7);

#pragma clang assume_nonnull end

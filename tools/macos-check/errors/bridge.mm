// error: no matching function for call to 'SecItemDelete'
#import <Foundation/Foundation.h>
#import <Security/Security.h>

int remove(NSDictionary* query) {
    return SecItemDelete(query);
}

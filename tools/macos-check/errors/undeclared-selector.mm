// error: undeclared selector 'signInn'
#import <Foundation/Foundation.h>

SEL action() {
    return @selector(signInn);
}

#pragma once

namespace cadora {

// Makes the process one that its surroundings can't trip: whatever opens a file next gets no standard
// descriptor, descriptors are as many as the system allows, and a reader that went away, a full disk or a
// limit is an error where it occurs and not the program's end. Its memory can't be traced or dumped, and
// nothing in the environment has the keys of its connections written down. Called first in main.
void prepareProcess();

} // namespace cadora

// descriptor_room.h: how many descriptors this process can still open.
#ifndef DCH_DESCRIPTOR_ROOM_H
#define DCH_DESCRIPTOR_ROOM_H

namespace dch {

struct DescriptorRoom {
  int free;        // how many more can be opened
  int limitToAsk;  // the limit on open files that would be enough
};

// Raises the process's limit on open files, as far as it may, so that `wanted` more can be opened.
DescriptorRoom makeDescriptorRoom(int wanted);

}  // namespace dch

#endif  // DCH_DESCRIPTOR_ROOM_H

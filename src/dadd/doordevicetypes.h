#ifndef DOORDEVICETYPES_H
#define DOORDEVICETYPES_H

namespace hardware::dadd {

/// The mechanical variants of the door in front of the dispensing area.
enum DeviceModel : int {
    CableDoor = 1, ///< pulled by a cable
    GearDoor = 2,  ///< driven by a gear
};

} // namespace hardware::dadd

#endif // DOORDEVICETYPES_H

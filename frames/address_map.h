// Element address -> coil or register address of the controller, and back.
#ifndef QUORVEL_RV_ADDRESS_MAP_H
#define QUORVEL_RV_ADDRESS_MAP_H

int BitElementToCoil(int areaType, int address);
int WordElementToRegister(int areaType, int address);

// The element a coil or register serves, read off the same table: false
// for one no element of an area maps to.
bool CoilToBitElement(int coil, int &areaType, int &address);
bool RegisterToWordElement(int reg, int &areaType, int &address);

#endif

// Element address -> coil or register address of the controller.
#ifndef QUORVEL_RV_ADDRESS_MAP_H
#define QUORVEL_RV_ADDRESS_MAP_H

int BitElementToCoil(int areaType, int address);
int WordElementToRegister(int areaType, int address);

#endif

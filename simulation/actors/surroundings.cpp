// What changes around the library: adapters, the calendar, ports that others take.

#include "actors/actors.h"

namespace zvqrn::simulation {

void ChangeSurroundings(Dice dice, Micros until) {
  while (machine.now < until) {
    Sleep(dice.Spread(2 * SECOND));
    std::array<Interface, 2> interfaces = network.interfaces;
    switch (dice.Below(4)) {
      case 0:
        machine.calendarOffset += dice.Between(-100000, 100000) * SECOND;
        DIARY("the calendar is set");
        continue;
      case 1:
        interfaces[0].isUp = !interfaces[0].isUp;
        break;
      case 2:
        interfaces[1].isUp = !interfaces[1].isUp;
        break;
      default:
        TellOfChange();  // of something else
        continue;
    }
    EnterInterfaces(interfaces);
  }
}

}  // namespace zvqrn::simulation

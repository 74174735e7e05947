/* What every program for an ORB device includes, as far as the sample has it. */
#ifndef QZ_H
#define QZ_H

#ifndef __QZM__
#error "qz.h needs the QZM compiler"
#endif

#define __interrupt(priority)
#define __at(address)
#define __bank(number)
#define __persistent

#define NOP() ((void)0)

#endif

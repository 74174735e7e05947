#ifndef STDBOOL_H
#define STDBOOL_H

#define bool _Bool
#define true 1
#define false 0

#endif

/* The few registers of the board that the scheduler uses. */
#ifndef BOARD_H
#define BOARD_H

#include <stdint.h>

struct board {
    uint8_t leds;    /* one bit a lamp, 1 is lit */
    uint8_t tick;    /* set to 1 by the timer every 10 ms */
    uint8_t rx_full; /* set to 1 by the receiver when rx_data holds a byte */
    uint8_t rx_data;
};

/* The section ".board" belongs at the address of the registers. */
extern volatile struct board board;

#endif

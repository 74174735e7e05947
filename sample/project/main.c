/* An LED scheduler: eight lamps, each with a period and an on-time in ticks of 10 ms, set over the
 * serial line by four-byte commands: lamp, period, on-time, CRC-8 of the three. */
#include "board.h"
#include "util.h"

#define LAMPS        8u
#define COMMAND_SIZE 4u

struct lamp {
    uint8_t period;  /* ticks; 0: the lamp is off */
    uint8_t on_time; /* ticks of each period for which it is lit */
    uint8_t phase;   /* ticks since the period began */
};

volatile struct board board __attribute__((section(".board")));

static struct lamp lamps[LAMPS] = {{100, 50, 0}};
static struct ring received;

/* Called for every byte that the receiver has taken in. */
static void on_receive(void)
{
    if (!board.rx_full)
        return;
    (void)ring_put(&received, board.rx_data);
    board.rx_full = 0;
}

/* Takes a whole command off the ring; drops one byte when the check fails, to fall into step. */
static void read_command(void)
{
    static uint8_t command[COMMAND_SIZE];
    static uint8_t have;

    while (have < COMMAND_SIZE && ring_get(&received, &command[have]))
        have++;
    if (have < COMMAND_SIZE)
        return;
    if (command[0] < LAMPS && crc8(command, COMMAND_SIZE - 1u) == command[3]) {
        lamps[command[0]] = (struct lamp){command[1], command[2], 0};
        have = 0;
        return;
    }
    for (uint8_t i = 1; i < COMMAND_SIZE; i++)
        command[i - 1u] = command[i];
    have--;
}

/* One tick: moves every lamp on and writes them all out at once. */
static void on_tick(void)
{
    uint8_t leds = 0;

    for (uint8_t i = 0; i < LAMPS; i++) {
        struct lamp *lamp = &lamps[i];
        if (lamp->period == 0)
            continue;
        if (lamp->phase < lamp->on_time)
            leds |= (uint8_t)(1u << i);
        if (++lamp->phase >= lamp->period)
            lamp->phase = 0;
    }
    board.leds = leds;
}

int main(void)
{
    for (;;) {
        on_receive();
        read_command();
        if (board.tick) {
            board.tick = 0;
            on_tick();
        }
    }
}

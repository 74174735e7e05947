; Where the program begins on an ORB device.
        processor 16z20a

        global  _main, start

        psect   reset, class=CODE
start:  clr     flags           ; nothing has happened yet
        call    _main
stop:   sleep
        jmp     stop

        psect   flags, data
flags:  ds      1

        end     start

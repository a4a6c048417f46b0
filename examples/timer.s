# A second member: a global function, a weak default and a common buffer.
        .text
        .globl  timer_start
        .weak   timer_hook
timer_start:
        ret
timer_hook:
        ret
        .comm   timer_ticks,4,4

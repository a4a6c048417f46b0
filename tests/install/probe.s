# The object the installed library is checked against: one symbol of each
# binding and kind the consumer prints.
	.text
	.globl	probe_entry
probe_entry:
	call	probe_external
	ret
	.weak	probe_hook
probe_hook:
	ret
probe_static:
	ret
	.data
	.globl	probe_counter
probe_counter:
	.long	3
	.comm	probe_buffer,16,4
	.globl	probe_limit
	.set	probe_limit,42

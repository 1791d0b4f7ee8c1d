// SPDX-License-Identifier: GPL-2.0
/*
 * Pairs of serial ports, ttyNM0 with ttyNM1 and ttyNM2 with ttyNM3, joined by a full null modem: RTS to CTS, DTR to DSR and DCD, OUT1 to
 * RI. With break, framing errors where speed or size differ, parity errors where parity does, counters, TIOCMIWAIT, and hot-plug by the
 * parameter "plugged", a bit a port.
 */
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/serial.h>
#include <linux/tty.h>
#include <linux/tty_driver.h>
#include <linux/tty_flip.h>

#define PORTS 4

struct end {
	struct tty_port port;
	unsigned int outputs, index;
	struct async_icount count;
};

static struct end ends[PORTS];
static struct tty_driver *driver;
static struct platform_device *device;
static unsigned int plugged;

static struct end *peer_of(struct end *e)
{
	return &ends[e->index ^ 1];
}

static unsigned int inputs_of(struct end *e)
{
	unsigned int o = peer_of(e)->outputs;

	return (o & TIOCM_RTS ? TIOCM_CTS : 0) | (o & TIOCM_DTR ? TIOCM_DSR | TIOCM_CAR : 0) | (o & TIOCM_OUT1 ? TIOCM_RI : 0);
}

static void set_outputs(struct end *e, unsigned int set, unsigned int clear)
{
	struct end *peer = peer_of(e);
	unsigned int before = inputs_of(peer), now, changed;

	e->outputs = (e->outputs & ~clear) | set;
	now = inputs_of(peer);
	changed = now ^ before;
	if (changed & TIOCM_CTS)
		peer->count.cts++;
	if (changed & TIOCM_DSR)
		peer->count.dsr++;
	if (changed & TIOCM_CAR)
		peer->count.dcd++;
	if ((changed & TIOCM_RI) && !(now & TIOCM_RI))
		peer->count.rng++; /* the trailing edge, as on a real one */
	if (changed)
		wake_up_interruptible(&peer->port.delta_msr_wait);
	if (changed & TIOCM_CAR) {
		if (now & TIOCM_CAR)
			wake_up_interruptible(&peer->port.open_wait);
		else
			tty_port_tty_hangup(&peer->port, true);
	}
}

static void raise_dtr_rts(struct tty_port *port, int on)
{
	const unsigned int lines = TIOCM_DTR | TIOCM_RTS;

	set_outputs(container_of(port, struct end, port), on ? lines : 0, on ? 0 : lines);
}

static int carrier_raised(struct tty_port *port)
{
	return !!(inputs_of(container_of(port, struct end, port)) & TIOCM_CAR);
}

static const struct tty_port_operations port_operations = { .dtr_rts = raise_dtr_rts, .carrier_raised = carrier_raised };

static int install(struct tty_driver *d, struct tty_struct *tty)
{
	tty->driver_data = &ends[tty->index];
	return tty_port_install(&ends[tty->index].port, d, tty);
}

static int open(struct tty_struct *tty, struct file *file)
{
	return tty_port_open(tty->port, tty, file);
}

static void close(struct tty_struct *tty, struct file *file)
{
	tty_port_close(tty->port, tty, file);
}

static void hangup(struct tty_struct *tty)
{
	tty_port_hangup(tty->port);
}

/* What becomes of a byte on this wire. */
static char flag_of(struct end *e)
{
	struct tty_struct *mine = e->port.tty, *theirs = peer_of(e)->port.tty;

	if (!mine || !theirs)
		return TTY_NORMAL;
	if (tty_termios_baud_rate(&mine->termios) != tty_termios_baud_rate(&theirs->termios) || C_CSIZE(mine) != C_CSIZE(theirs))
		return TTY_FRAME;
	if ((mine->termios.c_cflag ^ theirs->termios.c_cflag) & (PARENB | PARODD | CMSPAR))
		return TTY_PARITY;
	return TTY_NORMAL;
}

static int write(struct tty_struct *tty, const unsigned char *bytes, int count)
{
	struct end *e = tty->driver_data, *peer = peer_of(e);
	char flag = flag_of(e);
	int taken = count;

	if (tty_port_initialized(&peer->port)) { /* where nobody listens bytes are lost */
		taken = tty_insert_flip_string_fixed_flag(&peer->port, bytes, flag, count);
		peer->count.rx += taken;
		if (flag == TTY_FRAME)
			peer->count.frame += taken;
		if (flag == TTY_PARITY)
			peer->count.parity += taken;
		tty_flip_buffer_push(&peer->port);
	}
	e->count.tx += taken;
	return taken;
}

static unsigned int write_room(struct tty_struct *tty)
{
	return min(4096u, tty_buffer_space_avail(&peer_of(tty->driver_data)->port));
}

static int get_lines(struct tty_struct *tty)
{
	struct end *e = tty->driver_data;

	return (e->outputs & (TIOCM_DTR | TIOCM_RTS | TIOCM_OUT1)) | inputs_of(e);
}

static int set_lines(struct tty_struct *tty, unsigned int set, unsigned int clear)
{
	set_outputs(tty->driver_data, set, clear);
	return 0;
}

static int set_break(struct tty_struct *tty, int on)
{
	struct end *peer = peer_of(tty->driver_data);

	if (on && tty_port_initialized(&peer->port)) {
		peer->count.brk++;
		tty_insert_flip_char(&peer->port, 0, TTY_BREAK);
		tty_flip_buffer_push(&peer->port);
	}
	return 0;
}

static int get_counters(struct tty_struct *tty, struct serial_icounter_struct *out)
{
	struct async_icount *c = &((struct end *)tty->driver_data)->count;

	*out = (struct serial_icounter_struct){ .cts = c->cts, .dsr = c->dsr, .rng = c->rng, .dcd = c->dcd, .rx = c->rx, .tx = c->tx,
						.frame = c->frame, .parity = c->parity, .brk = c->brk };
	return 0;
}

static bool moved(const struct async_icount *now, const struct async_icount *before, unsigned long lines)
{
	return ((lines & TIOCM_RNG) && now->rng != before->rng) || ((lines & TIOCM_DSR) && now->dsr != before->dsr) ||
	       ((lines & TIOCM_CD) && now->dcd != before->dcd) || ((lines & TIOCM_CTS) && now->cts != before->cts);
}

static int control(struct tty_struct *tty, unsigned int command, unsigned long argument)
{
	struct end *e = tty->driver_data;
	struct async_icount before = e->count;
	int result;

	if (command != TIOCMIWAIT)
		return -ENOIOCTLCMD;
	result = wait_event_interruptible(e->port.delta_msr_wait, moved(&e->count, &before, argument) || !(plugged >> e->index & 1));
	if (!result && !(plugged >> e->index & 1))
		return -EIO;
	return result;
}

static int get_serial(struct tty_struct *tty, struct serial_struct *out)
{
	out->type = PORT_16550A;
	out->line = tty->index;
	out->baud_base = 115200;
	return 0;
}

static void set_termios(struct tty_struct *tty, const struct ktermios *old)
{
	/* Any setting will do: nothing here has hardware to be told. */
}

static const struct tty_operations operations = {
	.install = install, .open = open, .close = close, .hangup = hangup, .write = write, .write_room = write_room,
	.tiocmget = get_lines, .tiocmset = set_lines, .break_ctl = set_break, .get_icount = get_counters, .ioctl = control,
	.set_termios = set_termios, .get_serial = get_serial,
};

static int set_plugged(const char *text, const struct kernel_param *parameter)
{
	unsigned int wanted, before = plugged, i;
	int result = kstrtouint(text, 0, &wanted);

	if (result)
		return result;
	plugged = wanted;
	if (!driver)
		return 0; /* at load: the ports come with the driver */
	for (i = 0; i < PORTS; i++) {
		if ((wanted & ~before) >> i & 1)
			tty_port_register_device(&ends[i].port, driver, i, &device->dev);
		if ((before & ~wanted) >> i & 1) {
			wake_up_interruptible(&ends[i].port.delta_msr_wait);
			tty_port_tty_hangup(&ends[i].port, false);
			tty_unregister_device(driver, i);
		}
	}
	return 0;
}
static const struct kernel_param_ops plugged_operations = { .set = set_plugged, .get = param_get_uint };
module_param_cb(plugged, &plugged_operations, &plugged, 0644);

static int __init start(void)
{
	unsigned int i, wanted = plugged ?: 3;
	char text[12];
	int result;

	device = platform_device_register_simple("nullmodem", -1, NULL, 0);
	if (IS_ERR(device))
		return PTR_ERR(device);
	driver = tty_alloc_driver(PORTS, TTY_DRIVER_REAL_RAW | TTY_DRIVER_DYNAMIC_DEV);
	if (IS_ERR(driver)) {
		platform_device_unregister(device);
		return PTR_ERR(driver);
	}
	driver->driver_name = "nullmodem";
	driver->name = "ttyNM";
	driver->type = TTY_DRIVER_TYPE_SERIAL;
	driver->subtype = SERIAL_TYPE_NORMAL;
	driver->init_termios = tty_std_termios;
	driver->init_termios.c_cflag = B9600 | CS8 | CREAD | HUPCL | CLOCAL;
	tty_set_operations(driver, &operations);
	for (i = 0; i < PORTS; i++) {
		tty_port_init(&ends[i].port);
		ends[i].port.ops = &port_operations;
		ends[i].index = i;
		tty_port_link_device(&ends[i].port, driver, i);
	}
	result = tty_register_driver(driver);
	if (result) {
		tty_driver_kref_put(driver);
		platform_device_unregister(device);
		return result;
	}
	plugged = 0;
	snprintf(text, sizeof(text), "%u", wanted);
	return set_plugged(text, NULL);
}

static void __exit stop(void)
{
	unsigned int i;

	set_plugged("0", NULL);
	tty_unregister_driver(driver);
	tty_driver_kref_put(driver);
	for (i = 0; i < PORTS; i++)
		tty_port_destroy(&ends[i].port);
	platform_device_unregister(device);
}

module_init(start);
module_exit(stop);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Null modem pairs for tests");

// SPDX-License-Identifier: GPL-2.0
/*
 * A DVB-T tuner without a radio: where the folder of the parameter "streams" has a file KHZ.ts, there is a transmitter on that frequency,
 * whose stream is the file's packets, over and over. Lock delay, strength, quality and rate are parameters; "plugged" 0 pulls it out, also
 * in the middle of playing.
 */
#include <linux/delay.h>
#include <linux/fs.h>
#include <linux/kthread.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/slab.h>
#include <linux/workqueue.h>
#include <media/dmxdev.h>
#include <media/dvb_demux.h>
#include <media/dvb_frontend.h>
#include <media/dvbdev.h>

#define PACKET 188
#define PACKETS_AT_ONCE 64

static char *streams = "/run/streams";
static unsigned int lock_ms = 50, rate = 8000000, plugged = 1;
static int strength_db = -45, quality_db = 25;
module_param(streams, charp, 0644);
module_param(lock_ms, uint, 0644);
module_param(rate, uint, 0644);
MODULE_PARM_DESC(rate, "bits a second; 0 is as fast as it goes");
module_param(strength_db, int, 0644);
module_param(quality_db, int, 0644);

DVB_DEFINE_MOD_OPT_ADAPTER_NR(adapter_nr);

struct tuner {
	struct dvb_adapter adapter;
	struct dvb_frontend frontend;
	struct dvb_demux demux;
	struct dmxdev dmxdev;
	struct dmx_frontend source;
	struct task_struct *player;
	struct mutex lock; /* the player, and how many feed from it */
	unsigned int feeds;
	unsigned int khz;
	unsigned long locked_at; /* in jiffies */
	bool tuned;
	bool gone;
};

static struct tuner *tuner;
static struct platform_device *device;
static DEFINE_MUTEX(plug_lock);

static struct file *open_stream(unsigned int khz)
{
	char path[128];
	struct file *file;

	snprintf(path, sizeof(path), "%s/%u.ts", streams, khz);
	file = filp_open(path, O_RDONLY | O_LARGEFILE, 0);
	return IS_ERR(file) ? NULL : file;
}

static bool has_lock(struct tuner *t)
{
	return !t->gone && t->tuned && time_after_eq(jiffies, t->locked_at);
}

/* Plays what is tuned, at its rate, until it is stopped. */
static int play(void *data)
{
	struct tuner *t = data;
	u8 *buffer = kmalloc(PACKETS_AT_ONCE * PACKET, GFP_KERNEL);
	struct file *file = NULL;
	unsigned int khz = 0;
	loff_t position = 0;

	while (!kthread_should_stop() && buffer) {
		ssize_t count;

		if (!has_lock(t)) {
			msleep(5);
			continue;
		}
		if (!file || khz != t->khz) {
			if (file)
				filp_close(file, NULL);
			khz = t->khz;
			position = 0;
			file = open_stream(khz);
			if (!file) {
				msleep(20);
				continue;
			}
		}
		count = kernel_read(file, buffer, PACKETS_AT_ONCE * PACKET, &position);
		if (count < PACKET) {
			position = 0;
			if (count < 0)
				msleep(20);
			cond_resched();
			continue;
		}
		dvb_dmx_swfilter_packets(&t->demux, buffer, count / PACKET);
		if (rate)
			usleep_range(count * 8 * 1000000ull / rate, count * 8 * 1000000ull / rate + 200);
		else
			cond_resched();
	}
	if (file)
		filp_close(file, NULL);
	kfree(buffer);
	while (!kthread_should_stop())
		msleep(5);
	return 0;
}

static int start_feed(struct dvb_demux_feed *feed)
{
	struct tuner *t = feed->demux->priv;
	int result = 0;

	mutex_lock(&t->lock);
	if (t->gone) {
		result = -ENODEV;
	} else if (!t->feeds) {
		t->player = kthread_run(play, t, "dvbtuner");
		if (IS_ERR(t->player)) {
			result = PTR_ERR(t->player);
			t->player = NULL;
		}
	}
	if (!result)
		t->feeds++;
	mutex_unlock(&t->lock);
	return result;
}

static int stop_feed(struct dvb_demux_feed *feed)
{
	struct tuner *t = feed->demux->priv;
	struct task_struct *player = NULL;

	mutex_lock(&t->lock);
	if (!--t->feeds) {
		player = t->player;
		t->player = NULL;
	}
	mutex_unlock(&t->lock);
	if (player)
		kthread_stop(player);
	return 0;
}

static int set_frontend(struct dvb_frontend *fe)
{
	struct tuner *t = fe->demodulator_priv;
	struct file *file;

	if (t->gone)
		return -ENODEV;
	t->tuned = false;
	t->khz = fe->dtv_property_cache.frequency / 1000;
	file = open_stream(t->khz);
	if (!file)
		return 0;
	filp_close(file, NULL);
	t->locked_at = jiffies + msecs_to_jiffies(lock_ms);
	t->tuned = true;
	return 0;
}

static int read_status(struct dvb_frontend *fe, enum fe_status *status)
{
	struct tuner *t = fe->demodulator_priv;
	struct dtv_frontend_properties *p = &fe->dtv_property_cache;
	bool lock = has_lock(t);

	if (t->gone)
		return -ENODEV;
	*status = lock ? FE_HAS_SIGNAL | FE_HAS_CARRIER | FE_HAS_VITERBI | FE_HAS_SYNC | FE_HAS_LOCK : 0;
	p->strength.len = 1;
	p->strength.stat[0].scale = FE_SCALE_DECIBEL;
	p->strength.stat[0].svalue = (lock ? strength_db : -100) * 1000ll;
	p->cnr.len = 1;
	p->cnr.stat[0].scale = lock ? FE_SCALE_DECIBEL : FE_SCALE_NOT_AVAILABLE;
	p->cnr.stat[0].svalue = quality_db * 1000ll;
	return 0;
}

static int read_signal_strength(struct dvb_frontend *fe, u16 *strength)
{
	*strength = has_lock(fe->demodulator_priv) ? clamp(strength_db + 100, 0, 100) * 655 : 0;
	return 0;
}

static int read_snr(struct dvb_frontend *fe, u16 *snr)
{
	*snr = has_lock(fe->demodulator_priv) ? quality_db * 10 : 0;
	return 0;
}

static int get_tune_settings(struct dvb_frontend *fe, struct dvb_frontend_tune_settings *settings)
{
	/* The kernel tunes anew after so long without a lock, which would begin the delay anew too. */
	settings->min_delay_ms = lock_ms + 200;
	return 0;
}

static const struct dvb_frontend_ops frontend_operations = {
	.delsys = { SYS_DVBT },
	.info = {
		.name = "Test tuner DVB-T",
		.frequency_min_hz = 44250 * kHz,
		.frequency_max_hz = 867250 * kHz,
		.frequency_stepsize_hz = 62500,
		.caps = FE_CAN_FEC_AUTO | FE_CAN_QAM_AUTO | FE_CAN_TRANSMISSION_MODE_AUTO | FE_CAN_GUARD_INTERVAL_AUTO |
			FE_CAN_HIERARCHY_AUTO | FE_CAN_RECOVER | FE_CAN_INVERSION_AUTO,
	},
	.set_frontend = set_frontend,
	.read_status = read_status,
	.read_signal_strength = read_signal_strength,
	.read_snr = read_snr,
	.get_tune_settings = get_tune_settings,
};

static int make_tuner(void)
{
	struct tuner *t = kzalloc(sizeof(*t), GFP_KERNEL);
	int result;

	if (!t)
		return -ENOMEM;
	mutex_init(&t->lock);
	result = dvb_register_adapter(&t->adapter, "Test tuner", THIS_MODULE, &device->dev, adapter_nr);
	if (result < 0)
		goto no_adapter;
	t->demux.priv = t;
	t->demux.filternum = 64;
	t->demux.feednum = 64;
	t->demux.start_feed = start_feed;
	t->demux.stop_feed = stop_feed;
	t->demux.dmx.capabilities = DMX_TS_FILTERING | DMX_SECTION_FILTERING | DMX_MEMORY_BASED_FILTERING;
	result = dvb_dmx_init(&t->demux);
	if (result < 0)
		goto no_demux;
	t->dmxdev.filternum = 64;
	t->dmxdev.demux = &t->demux.dmx;
	result = dvb_dmxdev_init(&t->dmxdev, &t->adapter);
	if (result < 0)
		goto no_dmxdev;
	t->source.source = DMX_FRONTEND_0;
	t->demux.dmx.add_frontend(&t->demux.dmx, &t->source);
	t->demux.dmx.connect_frontend(&t->demux.dmx, &t->source);
	t->frontend.ops = frontend_operations;
	t->frontend.demodulator_priv = t;
	result = dvb_register_frontend(&t->adapter, &t->frontend);
	if (result < 0)
		goto no_frontend;
	tuner = t;
	return 0;

no_frontend:
	dvb_dmxdev_release(&t->dmxdev);
no_dmxdev:
	dvb_dmx_release(&t->demux);
no_demux:
	dvb_unregister_adapter(&t->adapter);
no_adapter:
	kfree(t);
	return result;
}

/* Waits for those who have it open, as a driver of a real one does. */
static void take_tuner(struct tuner *t)
{
	dvb_unregister_frontend(&t->frontend);
	dvb_frontend_detach(&t->frontend);
	t->demux.dmx.close(&t->demux.dmx);
	dvb_dmxdev_release(&t->dmxdev);
	dvb_dmx_release(&t->demux);
	dvb_unregister_adapter(&t->adapter);
	kfree(t);
}

static struct tuner *leaving;
static void pull_out(struct work_struct *work)
{
	take_tuner(leaving);
	leaving = NULL;
}
static DECLARE_WORK(pull_work, pull_out);

static int set_plugged(const char *text, const struct kernel_param *parameter)
{
	unsigned int wanted;
	int result = kstrtouint(text, 0, &wanted);

	if (result)
		return result;
	mutex_lock(&plug_lock);
	if (!device) {
		plugged = wanted; /* at load: the tuner comes with the module */
	} else if (wanted && !plugged) {
		flush_work(&pull_work);
		result = make_tuner();
		if (!result)
			plugged = 1;
	} else if (!wanted && plugged) {
		plugged = 0;
		leaving = tuner;
		tuner = NULL;
		leaving->gone = true;
		leaving->frontend.exit = DVB_FE_DEVICE_REMOVED;
		schedule_work(&pull_work); /* it may take as long as the tuner is held open */
	}
	mutex_unlock(&plug_lock);
	return result;
}
static const struct kernel_param_ops plugged_operations = { .set = set_plugged, .get = param_get_uint };
module_param_cb(plugged, &plugged_operations, &plugged, 0644);

static int __init start(void)
{
	int result = 0;

	device = platform_device_register_simple("dvbtuner", -1, NULL, 0);
	if (IS_ERR(device))
		return PTR_ERR(device);
	if (plugged)
		result = make_tuner();
	if (result)
		platform_device_unregister(device);
	return result;
}

static void __exit stop(void)
{
	flush_work(&pull_work);
	if (tuner)
		take_tuner(tuner);
	platform_device_unregister(device);
}

module_init(start);
module_exit(stop);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A DVB-T tuner that plays files, for tests");

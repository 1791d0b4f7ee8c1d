// SPDX-License-Identifier: GPL-2.0
/*
 * A display on an I2C bus of its own: its EDID at 0x50, DDC/CI at 0x37 (brightness 0x10, contrast 0x12, input 0x60, power 0xD6).
 * What was set stands in the module's parameters; "deaf" makes it answer nothing, "delay_ms" slowly.
 */
#include <linux/delay.h>
#include <linux/i2c.h>
#include <linux/module.h>
#include <linux/pci.h>

#define EDID_ADDRESS 0x50
#define DDC_ADDRESS 0x37
#define HOST_ADDRESS 0x51 /* what a request begins with */
#define DISPLAY_ADDRESS 0x6e /* what a reply begins with */
#define CHECKSUM_SEED 0x50
#define LENGTH_FLAG 0x80

enum { GET_FEATURE = 0x01, FEATURE_REPLY = 0x02, SET_FEATURE = 0x03, CAPABILITIES = 0xf3, CAPABILITIES_REPLY = 0xe3 };

static unsigned int brightness = 40, contrast = 60, input = 0x11, power = 1, maximum = 100, delay_ms;
static bool deaf;
module_param(brightness, uint, 0644);
module_param(contrast, uint, 0644);
module_param(input, uint, 0644);
module_param(power, uint, 0644);
module_param(maximum, uint, 0644);
MODULE_PARM_DESC(maximum, "the largest value of brightness and contrast");
module_param(delay_ms, uint, 0644);
module_param(deaf, bool, 0644);

static const char capabilities[] = "(prot(monitor)type(lcd)model(LOBBY)cmds(01 02 03 0C E3 F3)vcp(10 12 60(11 0F) D6(01 04) DF)mccs_ver(2.2))";

static u8 edid[128] = {
	0x00, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x00, /* header */
	0x58, 0x4c, 0x34, 0x12, 0x01, 0x00, 0x00, 0x00, /* maker VBL, product, serial number */
	0x01, 0x20, 0x01, 0x04, /* week 1 of 2022, version 1.4 */
	0xa5, 0x34, 0x20, 0x78, 0x06, /* digital, 52 x 32 cm */
	0xee, 0x91, 0xa3, 0x54, 0x4c, 0x99, 0x26, 0x0f, 0x50, 0x54, /* colours */
	0x00, 0x00, 0x00, /* no established timings */
	0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01,
	/* 1920x1080 at 60 Hz */
	0x02, 0x3a, 0x80, 0x18, 0x71, 0x38, 0x2d, 0x40, 0x58, 0x2c, 0x45, 0x00, 0x09, 0x25, 0x21, 0x00, 0x00, 0x1e,
	0x00, 0x00, 0x00, 0xfc, 0x00, 'L', 'o', 'b', 'b', 'y', ' ', 'S', 'c', 'r', 'e', 'e', 'n', '\n',
	0x00, 0x00, 0x00, 0xff, 0x00, 'L', '0', '0', '0', '1', '\n', 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20,
	0x00, 0x00, 0x00, 0x10 /* an unused descriptor; the last byte is made at start */
};

static u8 edid_offset;
static u8 reply[64];
static int reply_length;

static unsigned int *feature(u8 code, unsigned int *largest)
{
	static unsigned int version = 0x0202;

	*largest = maximum;
	switch (code) {
	case 0x10:
		return &brightness;
	case 0x12:
		return &contrast;
	case 0x60:
		*largest = 0x12;
		return &input;
	case 0xd6:
		*largest = 5;
		return &power;
	case 0xdf:
		*largest = 0xffff;
		return &version;
	}
	return NULL;
}

static void put_reply(const u8 *data, int length)
{
	u8 sum = CHECKSUM_SEED;
	int i;

	reply[0] = DISPLAY_ADDRESS;
	reply[1] = LENGTH_FLAG | length;
	memcpy(reply + 2, data, length);
	for (i = 0; i < length + 2; i++)
		sum ^= reply[i];
	reply[length + 2] = sum;
	reply_length = length + 3;
}

static void answer_feature(u8 code)
{
	unsigned int largest, *value = feature(code, &largest), now = value ? *value : 0;
	const u8 data[] = { FEATURE_REPLY, !value, code, 0, largest >> 8, largest, now >> 8, now };

	put_reply(data, sizeof(data));
}

static void answer_capabilities(int offset)
{
	u8 data[35] = { CAPABILITIES_REPLY, offset >> 8, offset };
	int length = clamp((int)sizeof(capabilities) - offset, 0, 32);

	memcpy(data + 3, capabilities + offset, length);
	put_reply(data, length + 3);
}

static void take_request(const u8 *bytes, int count)
{
	unsigned int largest, *value;

	reply_length = 0;
	if (count < 3 || bytes[0] != HOST_ADDRESS)
		return;
	if (bytes[2] == GET_FEATURE && count >= 4) {
		answer_feature(bytes[3]);
	} else if (bytes[2] == SET_FEATURE && count >= 6) {
		value = feature(bytes[3], &largest);
		if (value)
			*value = min(largest, (unsigned int)(bytes[4] << 8 | bytes[5]));
	} else if (bytes[2] == CAPABILITIES && count >= 5) {
		answer_capabilities(bytes[3] << 8 | bytes[4]);
	}
}

static void give_reply(u8 *buffer, int length)
{
	static const u8 nothing[] = { DISPLAY_ADDRESS, LENGTH_FLAG, 0xbe };

	memset(buffer, 0, length);
	if (reply_length)
		memcpy(buffer, reply, min(length, reply_length));
	else
		memcpy(buffer, nothing, min_t(int, length, sizeof(nothing)));
	reply_length = 0;
}

static int transfer(struct i2c_adapter *adapter, struct i2c_msg *messages, int count)
{
	int i, k;

	for (i = 0; i < count; i++) {
		struct i2c_msg *m = &messages[i];
		bool reads = m->flags & I2C_M_RD;

		if (m->addr == EDID_ADDRESS) {
			for (k = 0; reads && k < m->len; k++)
				m->buf[k] = edid[edid_offset++ % sizeof(edid)];
			if (!reads && m->len)
				edid_offset = m->buf[0];
		} else if (m->addr == DDC_ADDRESS && !deaf) {
			if (delay_ms)
				msleep(delay_ms);
			if (reads)
				give_reply(m->buf, m->len);
			else
				take_request(m->buf, m->len);
		} else {
			return -ENXIO;
		}
	}
	return count;
}

static u32 functionality(struct i2c_adapter *adapter)
{
	return I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;
}

static const struct i2c_algorithm algorithm = { .master_xfer = transfer, .functionality = functionality };
static struct i2c_adapter bus = { .owner = THIS_MODULE, .class = I2C_CLASS_DDC, .algo = &algorithm, .name = "display bus for tests" };

static int __init start(void)
{
	struct pci_dev *card = pci_get_class(PCI_CLASS_DISPLAY_VGA << 8, NULL) ?: pci_get_class(PCI_CLASS_DISPLAY_OTHER << 8, NULL);
	u8 sum = 0;
	int i;

	for (i = 0; i < 127; i++)
		sum += edid[i];
	edid[127] = -sum;
	if (card)
		bus.dev.parent = &card->dev; /* as the bus of a connector of that card */
	return i2c_add_adapter(&bus);
}

static void __exit stop(void)
{
	i2c_del_adapter(&bus);
}

module_init(start);
module_exit(stop);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A display with DDC/CI for tests");

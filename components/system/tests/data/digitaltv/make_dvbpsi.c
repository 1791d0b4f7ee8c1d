// Writes a transport stream of tables only, made by the generators of libdvbpsi, to the standard output.
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>
// The headers below need those above, and each other in this order.
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/nit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/sdt.h>

static uint8_t counters[8192];

static void write_section(int pid, const dvbpsi_psi_section_t* section) {
  const uint8_t* at = section->p_data;
  size_t left = (size_t)(section->p_payload_end - section->p_data) + (section->b_syntax_indicator ? 4 : 0);
  for (int first = 1; left > 0; first = 0) {
    uint8_t packet[188];
    memset(packet, 0xFF, sizeof packet);
    packet[0] = 0x47;
    packet[1] = (uint8_t)((first ? 0x40 : 0) | pid >> 8);
    packet[2] = (uint8_t)pid;
    packet[3] = (uint8_t)(0x10 | (counters[pid]++ & 15));
    size_t head = 4;
    if (first) packet[head++] = 0;
    size_t count = left < 188 - head ? left : 188 - head;
    memcpy(packet + head, at, count);
    at += count;
    left -= count;
    fwrite(packet, 1, sizeof packet, stdout);
  }
}

static void write_sections(int pid, dvbpsi_psi_section_t* sections) {
  for (dvbpsi_psi_section_t* s = sections; s; s = s->p_next) write_section(pid, s);
  dvbpsi_DeletePSISections(sections);
}

int main(void) {
  dvbpsi_t* handle = dvbpsi_new(NULL, DVBPSI_MSG_NONE);

  dvbpsi_pat_t* pat = dvbpsi_pat_new(0x1234, 5, true);
  dvbpsi_pat_program_add(pat, 0, 0x10);
  dvbpsi_pat_program_add(pat, 0x0301, 0x300);
  dvbpsi_pat_program_add(pat, 0x0302, 0x310);
  dvbpsi_pat_program_add(pat, 0x0303, 0x320);
  write_sections(0, dvbpsi_pat_sections_generate(handle, pat, 253));

  // Terrestrial: 594 MHz, 8 MHz, priority, time slicing and MPE-FEC as they are; 64-QAM, no hierarchy, 3/4; 1/2, 1/8, 8K.
  uint8_t delivery[] = {0x03, 0x8A, 0x5F, 0x40, 0x1F, 0x82, 0x0A, 0xFF, 0xFF, 0xFF, 0xFF};
  dvbpsi_nit_t* nit = dvbpsi_nit_new(0x40, 0x3085, 0x3085, 2, true);
  dvbpsi_nit_descriptor_add(nit, 0x40, 7, (uint8_t*)"Bouquet");
  dvbpsi_nit_ts_t* ts = dvbpsi_nit_ts_add(nit, 0x1234, 0x20FA);
  dvbpsi_nit_ts_descriptor_add(ts, 0x5A, sizeof delivery, delivery);
  uint8_t numbers[] = {0x03, 0x01, 0xFC, 0x02, 0x03, 0x02, 0xFC, 0x15};
  dvbpsi_nit_ts_descriptor_add(ts, 0x83, sizeof numbers, numbers);
  write_sections(0x10, dvbpsi_nit_sections_generate(handle, nit, 0x40));

  dvbpsi_sdt_t* sdt = dvbpsi_sdt_new(0x42, 0x1234, 3, true, 0x20FA);
  dvbpsi_sdt_service_t* service = dvbpsi_sdt_service_add(sdt, 0x0301, false, false, 4, false);
  dvbpsi_sdt_service_descriptor_add(service, 0x48, 18, (uint8_t*)"\x01\x06\x05" "ARTV2" "\x09\x05" "Tele\xF6 HD");
  service = dvbpsi_sdt_service_add(sdt, 0x0302, false, false, 1, true);
  dvbpsi_sdt_service_descriptor_add(service, 0x48, 15, (uint8_t*)"\x02\x05Radio\x07" "Fm 101\x80");
  service = dvbpsi_sdt_service_add(sdt, 0x0303, false, false, 4, false);
  dvbpsi_sdt_service_descriptor_add(service, 0x48, 3, (uint8_t*)"\x0C\x00\x00");
  write_sections(0x11, dvbpsi_sdt_sections_generate(handle, sdt));

  dvbpsi_pmt_t* pmt = dvbpsi_pmt_new(0x0301, 1, true, 0x200);
  dvbpsi_pmt_descriptor_add(pmt, 0x0A, 4, (uint8_t*)"und\0");
  dvbpsi_pmt_es_t* es = dvbpsi_pmt_es_add(pmt, 0x1B, 0x200);
  dvbpsi_pmt_es_descriptor_add(es, 0x52, 1, (uint8_t*)"\x01");
  es = dvbpsi_pmt_es_add(pmt, 0x04, 0x201);
  dvbpsi_pmt_es_descriptor_add(es, 0x52, 1, (uint8_t*)"\x02");
  dvbpsi_pmt_es_descriptor_add(es, 0x0A, 4, (uint8_t*)"fra\0");
  es = dvbpsi_pmt_es_add(pmt, 0x06, 0x202);
  dvbpsi_pmt_es_descriptor_add(es, 0x0A, 4, (uint8_t*)"eng\3");
  dvbpsi_pmt_es_descriptor_add(es, 0x7A, 1, (uint8_t*)"\0");
  es = dvbpsi_pmt_es_add(pmt, 0x06, 0x203);
  dvbpsi_pmt_es_descriptor_add(es, 0x56, 5, (uint8_t*)"fra\x09\0");
  es = dvbpsi_pmt_es_add(pmt, 0x06, 0x204);
  dvbpsi_pmt_es_descriptor_add(es, 0x59, 8, (uint8_t*)"fra\x10\0\1\0\1");
  write_sections(0x300, dvbpsi_pmt_sections_generate(handle, pmt));

  pmt = dvbpsi_pmt_new(0x0302, 1, true, 0x211);
  es = dvbpsi_pmt_es_add(pmt, 0x03, 0x211);
  es = dvbpsi_pmt_es_add(pmt, 0x06, 0x212);
  dvbpsi_pmt_es_descriptor_add(es, 0x6A, 1, (uint8_t*)"\0");
  write_sections(0x310, dvbpsi_pmt_sections_generate(handle, pmt));

  pmt = dvbpsi_pmt_new(0x0303, 1, true, 0x1FFF);
  dvbpsi_pmt_es_add(pmt, 0x05, 0x221);
  write_sections(0x320, dvbpsi_pmt_sections_generate(handle, pmt));
  dvbpsi_delete(handle);
  return 0;
}

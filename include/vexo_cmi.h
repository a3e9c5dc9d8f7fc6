/**
 * @file vexo_cmi.h
 * @brief The CMI library: configuration, counters, alarms and maintenance of a
 * TDM-over-packet gateway. The one header that an agent includes.
 *
 * @mainpage
 * Usable from C11 and from C++. Start with @ref conventions, then read the
 * header of the family that you need: sys, pdh, pwe, ima, misc or notify.
 * @ref operations has them all on one page.
 */
#ifndef VEXO_CMI_H
#define VEXO_CMI_H

#include <vexo_cmi/base.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/ima.h>
#include <vexo_cmi/misc.h>
#include <vexo_cmi/notify.h>
#include <vexo_cmi/pdh.h>
#include <vexo_cmi/pwe.h>
#include <vexo_cmi/sys.h>
#include <vexo_cmi/values.h>

#endif

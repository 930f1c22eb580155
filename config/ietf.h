/*
 * Documents as the standard data models for NAT have them: JSON of the YANG modules ietf-nat (RFC 8512) and, for MAP-T
 * rules, ietf-softwire-br (RFC 8676), encoded as RFC 7951 says.
 *
 * Neither form has a place for all that the other can say. What has none is a problem each, all of them at once, and
 * nothing of it is lost without one. What is no such JSON at all, or no configuration of one NAT64, is an error in any
 * case.
 */
#ifndef CONFIG_IETF_H
#define CONFIG_IETF_H

#include <cstddef>
#include <string>
#include <string_view>

#include "config/document.h"
#include "config/problem.h"

/** What becomes of that which has no place in the other form: an error, or a warning and the rest is converted. */
enum class ietf_loss_t : uint8_t { refused, warned };

/** Longer texts are refused. */
constexpr size_t ietf_max_bytes = size_t{256} << 20;

/**
 * Reads the standard form. Problems name the path of what they are about as their command, and the document that comes
 * of it is settled; after an error it is of no use.
 */
document_t read_ietf(std::string_view text, ietf_loss_t loss, problems_t &problems);

/**
 * Writes a document that has no errors. The same items give the same bytes; read back they give the same items, but for
 * what was warned of. After an error the text is of no use.
 */
std::string write_ietf(const document_t &document, ietf_loss_t loss, problems_t &problems);

#endif

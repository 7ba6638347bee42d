// The whole state of a run as named bytes: taken, compared, and put into another
// run of the same model.
#pragma once

#include "control/run.h"

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace zeph_test {

// Calls visit(name, data, bytes) for everything that a chain can change.
template <class Visit> void for_each_part(zeph::run& r, Visit visit) {
  const auto array = [&](const std::string& name, auto& x) {
    visit(name, static_cast<void*>(x.data()), static_cast<std::size_t>(x.size()) * sizeof(*x.data()));
  };
  const auto value = [&](const std::string& name, auto& x) {
    static_assert(std::is_trivially_copyable_v<std::remove_reference_t<decltype(x)>>);
    visit(name, static_cast<void*>(&x), sizeof(x));
  };
  zeph::sampler_store& s = r.sampler;
  array("RHS", s.RHS), array("sol", s.sol), array("solpostmean", s.solpostmean), array("pev", s.pev);
  array("sols", s.sols), array("GIF", s.GIF), array("GDET", s.GDET), array("RDET", s.RDET);
  array("RCOV", s.RCOV), array("RCOVI", s.RCOVI), array("IDET_RVAR", s.IDET_RVAR), array("LVDET", s.LVDET);
  array("sscp", s.sscp), array("PARPOSTMEAN", s.PARPOSTMEAN), array("PARVAR", s.PARVAR),
      array("pars", s.pars);
  array("dic_ressum", s.dic_ressum), array("dic_rrsum", s.dic_rrsum), array("dic_s", s.dic_s);
  array("IREST", s.IREST), array("LNCOV", s.LNCOV);
  for (std::size_t k = 0; k < s.IW_STR.size(); ++k) {
    const std::string at = std::to_string(k + 1);
    array("sscp_f" + at, s.IW_STR[k].sscp_f), array("W" + at, s.IW_STR[k].W);
    array("W_INV" + at, s.IW_STR[k].W_INV), array("SCALE" + at, s.IW_STR[k].SCALE);
  }
  array("NGR", r.layout.NGR);
  for (std::size_t g = 0; g < r.layout.DI.size(); ++g) {
    array("DI" + std::to_string(g + 1), r.layout.DI[g]);
    array("CDI" + std::to_string(g + 1), r.layout.CDI[g]);
  }
  for (std::int32_t t = 1; t <= r.model.nt; ++t)
    array("REG_TYPE" + std::to_string(t), r.model.MODEL(t).REG_TYPE);
  for (std::int32_t k = 1; k <= r.model.nramat + 1; ++k)
    array("COV_MAT" + std::to_string(k), r.model.RMAT(k).COV_MAT);
  zeph::design_store& d = r.design;
  array("XD1_M", d.XD1_M), array("XD2_M", d.XD2_M), array("XD5_M", d.XD5_M), array("XD6_M", d.XD6_M);
  array("ZD_M", d.ZD_M), array("Y_M", d.Y_M), array("WV_M", d.WV_M), array("ISIT_M", d.ISIT_M);
  array("M_M", d.M_M), array("IRESG_M", d.IRESG_M), array("ZEPH_RES", d.ZEPH_RES);
  array("E", r.work.fast.E);
  if (!r.state.ntr.empty()) array("ntr", r.state.ntr);
  value("iround", r.state.iround), value("nsamples", r.counts.nsamples), value("P_ROUND", r.counts.P_ROUND);
  array("prop_z", r.jump.prop_z), array("conv_sol", r.jump.conv_sol);
  zeph::marsaglia_source& m = r.sources.marsaglia;
  value("marsaglia TEST", m.TEST), value("marsaglia I97", m.I97), value("marsaglia C", m.C);
  value("marsaglia count", m.count), value("marsaglia used", m.used);
  array("marsaglia U", m.U), array("marsaglia uni", m.uni);
  array("saved U", m.saved.U), value("saved C", m.saved.C), value("saved CD", m.saved.CD);
  value("saved CM", m.saved.CM), value("saved I97", m.saved.I97), value("saved J97", m.saved.J97);
  value("saved TEST", m.saved.TEST);
  zeph::combined_source& c = r.sources.combined;
  for (std::size_t g = 0; g < c.generators.size(); ++g) {
    const std::string at = std::to_string(g + 1);
    value("ig1 " + at, c.generators[g].ig1), value("ig2 " + at, c.generators[g].ig2);
    value("lg1 " + at, c.generators[g].lg1), value("lg2 " + at, c.generators[g].lg2);
    value("cg1 " + at, c.generators[g].cg1), value("cg2 " + at, c.generators[g].cg2);
  }
  value("curntg", c.curntg), value("qrgnin", c.qrgnin), value("qrgnsd", c.qrgnsd);
}

using run_state = std::map<std::string, std::string>;

inline run_state state_of(zeph::run& r) {
  run_state state;
  for_each_part(r, [&](const std::string& name, void* data, std::size_t bytes) {
    state[name] = bytes > 0 ? std::string(static_cast<const char*>(data), bytes) : std::string();
  });
  return state;
}

// Puts the state into another run; the gamma draws' set-up stays that of their shape.
inline void put_state(zeph::run& r, const run_state& state) {
  for_each_part(r, [&](const std::string& name, void* data, std::size_t bytes) {
    const std::string& from = state.at(name);
    if (bytes > 0 && from.size() == bytes) std::memcpy(data, from.data(), bytes);
  });
}

// Names of the parts in which two states differ.
inline std::vector<std::string> differing_parts(const run_state& a, const run_state& b) {
  std::vector<std::string> names;
  for (const auto& [name, bytes] : a)
    if (b.at(name) != bytes) names.push_back(name);
  return names;
}

} // namespace zeph_test

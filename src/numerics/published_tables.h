// Constants that the draws and the normal functions take from the published
// routines, with the digits printed there; 32-bit numbers carry the suffix F, so
// that each decimal is rounded once. Tables count from 1: X(i) is X[i-1].
#pragma once

namespace zeph {

// Algorithm FL with five subdivisions for standard normal deviates: J. H. Ahrens
// and U. Dieter, Extensions of Forsythe's method for random sampling from the
// normal distribution, Mathematics of Computation 27 (1973) 927-937.
//   A  left ends of the 32 intervals of the half normal; A(32) begins the tail
//   D  widths of the tail intervals, from i = 6
//   T  thresholds below which an interval needs the wedge test
//   H  slopes of the part that is accepted at once
// Both widths take the same digits; the 64-bit table is not the 32-bit one widened.
template <class real> struct fl5_tables;

template <> struct fl5_tables<float> {
  static constexpr float A[32] = {
      0.0F,       0.3917609e-1F, 0.7841241e-1F, 0.1177699F, 0.1573107F, 0.1970991F, 0.2372021F, 0.2776904F,
      0.3186394F, 0.3601299F,    0.4022501F,    0.4450965F, 0.4887764F, 0.5334097F, 0.5791322F, 0.6260990F,
      0.6744898F, 0.7245144F,    0.7764218F,    0.8305109F, 0.8871466F, 0.9467818F, 1.009990F,  1.077516F,
      1.150349F,  1.229859F,     1.318011F,     1.417797F,  1.534121F,  1.675940F,  1.862732F,  2.153875F};
  static constexpr float D[31] = {
      0.0F,       0.0F,       0.0F,       0.0F,       0.0F,       0.2636843F, 0.2425085F, 0.2255674F,
      0.2116342F, 0.1999243F, 0.1899108F, 0.1812252F, 0.1736014F, 0.1668419F, 0.1607967F, 0.1553497F,
      0.1504094F, 0.1459026F, 0.1417700F, 0.1379632F, 0.1344418F, 0.1311722F, 0.1281260F, 0.1252791F,
      0.1226109F, 0.1201036F, 0.1177417F, 0.1155119F, 0.1134023F, 0.1114027F, 0.1095039F};
  static constexpr float T[31] = {
      0.7673828e-3F, 0.2306870e-2F, 0.3860618e-2F, 0.5438454e-2F, 0.7050699e-2F, 0.8708396e-2F, 0.1042357e-1F,
      0.1220953e-1F, 0.1408125e-1F, 0.1605579e-1F, 0.1815290e-1F, 0.2039573e-1F, 0.2281177e-1F, 0.2543407e-1F,
      0.2830296e-1F, 0.3146822e-1F, 0.3499233e-1F, 0.3895483e-1F, 0.4345878e-1F, 0.4864035e-1F, 0.5468334e-1F,
      0.6184222e-1F, 0.7047983e-1F, 0.8113195e-1F, 0.9462444e-1F, 0.1123001F,    0.1364980F,    0.1716886F,
      0.2276241F,    0.3304980F,    0.5847031F};
  static constexpr float H[31] = {
      0.3920617e-1F, 0.3932705e-1F, 0.3950999e-1F, 0.3975703e-1F, 0.4007093e-1F, 0.4045533e-1F, 0.4091481e-1F,
      0.4145507e-1F, 0.4208311e-1F, 0.4280748e-1F, 0.4363863e-1F, 0.4458932e-1F, 0.4567523e-1F, 0.4691571e-1F,
      0.4833487e-1F, 0.4996298e-1F, 0.5183859e-1F, 0.5401138e-1F, 0.5654656e-1F, 0.5953130e-1F, 0.6308489e-1F,
      0.6737503e-1F, 0.7264544e-1F, 0.7926471e-1F, 0.8781922e-1F, 0.9930398e-1F, 0.1155599F,    0.1404344F,
      0.1836142F,    0.2790016F,    0.7010474F};
};

template <> struct fl5_tables<double> {
  static constexpr double A[32] = {
      0.0,       0.3917609e-1, 0.7841241e-1, 0.1177699, 0.1573107, 0.1970991, 0.2372021, 0.2776904,
      0.3186394, 0.3601299,    0.4022501,    0.4450965, 0.4887764, 0.5334097, 0.5791322, 0.6260990,
      0.6744898, 0.7245144,    0.7764218,    0.8305109, 0.8871466, 0.9467818, 1.009990,  1.077516,
      1.150349,  1.229859,     1.318011,     1.417797,  1.534121,  1.675940,  1.862732,  2.153875};
  static constexpr double D[31] = {
      0.0,       0.0,       0.0,       0.0,       0.0,       0.2636843, 0.2425085, 0.2255674,
      0.2116342, 0.1999243, 0.1899108, 0.1812252, 0.1736014, 0.1668419, 0.1607967, 0.1553497,
      0.1504094, 0.1459026, 0.1417700, 0.1379632, 0.1344418, 0.1311722, 0.1281260, 0.1252791,
      0.1226109, 0.1201036, 0.1177417, 0.1155119, 0.1134023, 0.1114027, 0.1095039};
  static constexpr double T[31] = {
      0.7673828e-3, 0.2306870e-2, 0.3860618e-2, 0.5438454e-2, 0.7050699e-2, 0.8708396e-2, 0.1042357e-1,
      0.1220953e-1, 0.1408125e-1, 0.1605579e-1, 0.1815290e-1, 0.2039573e-1, 0.2281177e-1, 0.2543407e-1,
      0.2830296e-1, 0.3146822e-1, 0.3499233e-1, 0.3895483e-1, 0.4345878e-1, 0.4864035e-1, 0.5468334e-1,
      0.6184222e-1, 0.7047983e-1, 0.8113195e-1, 0.9462444e-1, 0.1123001,    0.1364980,    0.1716886,
      0.2276241,    0.3304980,    0.5847031};
  static constexpr double H[31] = {
      0.3920617e-1, 0.3932705e-1, 0.3950999e-1, 0.3975703e-1, 0.4007093e-1, 0.4045533e-1, 0.4091481e-1,
      0.4145507e-1, 0.4208311e-1, 0.4280748e-1, 0.4363863e-1, 0.4458932e-1, 0.4567523e-1, 0.4691571e-1,
      0.4833487e-1, 0.4996298e-1, 0.5183859e-1, 0.5401138e-1, 0.5654656e-1, 0.5953130e-1, 0.6308489e-1,
      0.6737503e-1, 0.7264544e-1, 0.7926471e-1, 0.8781922e-1, 0.9930398e-1, 0.1155599,    0.1404344,
      0.1836142,    0.2790016,    0.7010474};
};

// Gamma deviates, all in 32 bits. Shapes of 1 and above (GD): J. H. Ahrens and
// U. Dieter, Generating gamma variates by a modified rejection technique,
// Communications of the ACM 25 (1982) 47-54; the hat is that of the later release
// of the published routine. Shapes below 1 (GS): the same, Computer methods for
// sampling from gamma, beta, Poisson and binomial distributions, Computing 12
// (1974) 223-246.
struct gamma_tables {
  // Q: q0 as a series in 1/a; A: the quotient as a series in v, |v| <= 0.25;
  // E: exp(q) - 1 as a series in q, 0 < q <= 0.5
  static constexpr float Q[7] = {0.04166669F,  0.02083148F, 0.00801191F, 0.00144121F,
                                 -0.00007388F, 0.00024511F, 0.00024240F};
  static constexpr float A[7] = {0.3333333F, -0.2500030F, 0.2000062F, -0.1662921F,
                                 0.1423657F, -0.1367177F, 0.1233795F};
  static constexpr float E[5] = {1.0F, 0.4999897F, 0.1668290F, 0.0407753F, 0.0102930F};
  static constexpr float sqrt32 = 5.656854F; // d = sqrt32 - 12 s of the squeeze test
  static constexpr float tau1 = 0.7187449F;  // a double exponential t below -tau1 is rejected
  // the hat: centre b, scale si, height c, in three ranges of the shape a
  static constexpr float limit_1 = 3.686F;  // a <= limit_1: case 1
  static constexpr float limit_2 = 13.022F; // a <= limit_2: case 2; beyond: case 3
  static constexpr float b1_0 = 0.463F;     // b = b1_0 + s + b1_2 s2
  static constexpr float b1_2 = 0.178F;
  static constexpr float si1 = 1.235F;   // si = si1
  static constexpr float c1_m1 = 0.195F; // c = c1_m1 / s - c1_0 + c1_1 s
  static constexpr float c1_0 = 0.079F;
  static constexpr float c1_1 = 0.16F;
  static constexpr float b2_0 = 1.654F; // b = b2_0 + b2_2 s2
  static constexpr float b2_2 = 0.0076F;
  static constexpr float si2_m1 = 1.68F; // si = si2_m1 / s + si2_0
  static constexpr float si2_0 = 0.275F;
  static constexpr float c2_m1 = 0.062F; // c = c2_m1 / s + c2_0
  static constexpr float c2_0 = 0.024F;
  static constexpr float b3 = 1.77F; // b = b3, si = si3, c = c3_m1 / s
  static constexpr float si3 = 0.75F;
  static constexpr float c3_m1 = 0.1515F;
  static constexpr float large_q = 15.0F;        // from this q on the last test is in one exponential
  static constexpr float exp_limit = 87.49823F;  // above it that test is passed
  static constexpr float gs_factor = 0.3678794F; // exp(-1) of GS, in b = 1 + exp(-1) a
};

// Algorithm SA for standard exponential deviates, in 32 bits: J. H. Ahrens and
// U. Dieter, Computer methods for sampling from the exponential and normal
// distributions, Communications of the ACM 15 (1972) 873-882.
// Q(n) = sum over k = 1..n of (ln 2)^k / k!
struct exponential_tables {
  static constexpr float Q[8] = {0.6931472F, 0.9333737F, 0.9888778F, 0.9984959F,
                                 0.9998293F, 0.9999833F, 0.9999986F, 0.9999999F};
};

// Rational approximations of the normal distribution function: W. J. Cody,
// Rational Chebyshev approximations for the error function, Mathematics of
// Computation 23 (1969) 631-637, and Algorithm 715: SPECFUN, ACM Transactions on
// Mathematical Software 19 (1993) 22-32, as carried by DCDFLIB.
struct cody_tables {
  // numerator and denominator: A, B for |x| <= thrsh; C, D up to root32; P, Q beyond
  static constexpr double A[5] = {2.2352520354606839287e00, 1.6102823106855587881e02,
                                  1.0676894854603709582e03, 1.8154981253343561249e04,
                                  6.5682337918207449113e-2};
  static constexpr double B[4] = {4.7202581904688241870e01, 9.7609855173777669322e02,
                                  1.0260932208618978205e04, 4.5507789335026729956e04};
  static constexpr double C[9] = {
      3.9894151208813466764e-1, 8.8831497943883759412e00, 9.3506656132177855979e01,
      5.9727027639480026226e02, 2.4945375852903726711e03, 6.8481904505362823326e03,
      1.1602651437647350124e04, 9.8427148383839780218e03, 1.0765576773720192317e-8};
  static constexpr double D[8] = {
      2.2266688044328115691e01, 2.3538790178262499861e02, 1.5193775994075548050e03, 6.4855582982667607550e03,
      1.8615571640885098091e04, 3.4900952721145977266e04, 3.8912003286093271411e04, 1.9685429676859990727e04};
  static constexpr double P[6] = {2.1589853405795699e-1,   1.274011611602473639e-1, 2.2235277870649807e-2,
                                  1.421619193227893466e-3, 2.9112874951168792e-5,   2.307344176494017303e-2};
  static constexpr double Q[5] = {1.28426009614491121e00, 4.68238212480865118e-1, 6.59881378689285515e-2,
                                  3.78239633202758244e-3, 7.29751555083966205e-5};
  static constexpr double sqrpi = 3.9894228040143267794e-1; // 1/sqrt(2 pi)
  static constexpr double thrsh = 0.66291e0;
  static constexpr double root32 = 5.656854248e0;
  static constexpr double sixten =
      1.60e0; // kept: SPECFUN has 16; the split of the exponent is coarser, not wrong
  static constexpr double eps = 0x1p-53;   // below it x*x is taken as 0
  static constexpr double min = 0x1p-1022; // smallest normal number: a smaller tail becomes 0
};

// Starting value of the inverse, in y = sqrt(-2 ln p): W. J. Kennedy and
// J. E. Gentle, Statistical Computing, Marcel Dekker (1980) 95; constants of the
// Newton steps of DCDFLIB.
struct inverse_tables {
  static constexpr double XNUM[5] = {-0.322232431088e0, -1.000000000000e0, -0.342242088547e0,
                                     -0.204231210245e-1, -0.453642210148e-4};
  static constexpr double XDEN[5] = {0.993484626060e-1, 0.588581570495e0, 0.531103462366e0, 0.103537752850e0,
                                     0.38560700634e-2};
  static constexpr int maxit = 100;                    // Newton steps, at most
  static constexpr double eps = 1.0e-13;               // a step with |dx/x| below it is the last
  static constexpr double r2pi = 0.3989422804014326e0; // density = r2pi exp(nhalf x x)
  static constexpr double nhalf = -0.5e0;
};

} // namespace zeph

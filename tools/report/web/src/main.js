import { showFlame } from "./flame.js";
import { showHead, showTotals } from "./head.js";
import { showSites } from "./site_table.js";
import { showFaults, showHistogram, showStatistics } from "./tables.js";
import { showTimeline } from "./timeline.js";

showHead();
showTotals();
showFlame();
showSites();
showTimeline();
showHistogram();
showStatistics();
showFaults();

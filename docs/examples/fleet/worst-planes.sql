-- The ten planes that received the most congestion notifications.
with steps as (
  select source, event_type, device_name, plane,
         epoch(timestamp - lag(timestamp) over samples) as seconds,
         -- Counters of 32 bits go round.
         (cnp_rcvd::bigint - lag(cnp_rcvd) over samples) & 4294967295 as step
  from events where type = 'plane' and cnp_rcvd is not null
  window samples as (partition by source, run, device_name, plane order by sequence))
select source, device_name, plane, sum(step)::bigint as notifications,
       round(sum(step) / sum(seconds), 1) as per_second,
       round(max(step / seconds)) as highest_per_second
from steps where step is not null group by all order by notifications desc, source, device_name, plane limit 10;
